#include "client/storage/self_testing.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <optional>
#include <utility>

#include "client/log/wide_format.h"

namespace StorageCollector {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only
using platform::DriveAction;

constexpr std::uint8_t kShort = 1;  // the code of a short self-test in the logs of both standards

/// A test that is through.
struct Ended {
  std::uint8_t code = 0;    ///< What it came to.
  std::uint64_t which = 0;  ///< Its place in the log; 0 for a drive without one.
  std::uint64_t power_on_hours = 0;

  bool operator==(const Ended&) const = default;
};

/// What a drive says of its self-tests.
struct Look {
  bool supported = false;
  bool running = false;
  std::chrono::minutes estimate{2};
  std::optional<Ended> newest = {};  ///< The newest short one.
};

/// The self-tests of one kind of drive.
struct Tester {
  Reading<Look> (*look)(const HardDisk& drive, platform::Waitable* stop);
  DriveAction start;
  DriveAction abort;
  std::wstring (*words)(std::uint8_t code);
};

Reading<Look> LookAtAta(const HardDisk& drive, platform::Waitable* stop) {
  const auto smart = drive.ReadAtaSmart(stop);
  if (!smart.content) return {{}, smart.silence, smart.error};
  Look look{.supported = smart.content->self_test_supported,
            .running = smart.content->self_test.code == TVK::kAtaSelfTestRuns};
  look.estimate = std::max(std::chrono::minutes(smart.content->short_test_minutes), 1min);
  if (look.running) return {look};
  const auto log = drive.ReadAtaSelfTestLog(stop);
  const auto entry = log.content ? log.content->newest : std::nullopt;
  if (entry && entry->subcommand == kShort) {
    look.newest = {entry->status.code, entry->index, entry->power_on_hours};
  } else {
    look.newest = {.code = smart.content->self_test.code};  // of the newest test too, only not which it was
  }
  return {look};
}

Reading<Look> LookAtNvme(const HardDisk& drive, platform::Waitable* stop) {
  const auto supported = drive.ReadNvmeSelfTestSupport(stop);
  if (!supported.content) return {{}, supported.silence, supported.error};
  if (!*supported.content) return {Look{}};
  const auto log = drive.ReadNvmeSelfTestLog(stop);
  if (!log.content) return {{}, log.silence, log.error};
  // A short test takes two minutes at most (NVM Express Base Specification 2.0c, 8.6.1).
  Look look{.supported = true, .running = log.content->running != 0};
  const auto& newest = log.content->newest;
  if (newest && newest->code == kShort) look.newest = {newest->result, 0, newest->power_on_hours};
  return {look};
}

const Tester* TesterOf(const HardDisk& drive) {
  static constexpr Tester kNvme{LookAtNvme, DriveAction::kNvmeStartShortSelfTest, DriveAction::kNvmeAbortSelfTest,
                                NvmeSelfTestWords};
  static constexpr Tester kAta{LookAtAta, DriveAction::kAtaStartShortSelfTest, DriveAction::kAtaAbortSelfTest,
                               AtaSelfTestWords};
  switch (drive.kind()) {
    case DriveKind::kNvme:
      return &kNvme;
    case DriveKind::kSataSsd:
    case DriveKind::kAta:
      return &kAta;
    case DriveKind::kOther:
      break;
  }
  return nullptr;
}

bool IsBatteryLow(platform::Power& power) {
  const platform::PowerStatus status = power.ReadStatus();
  if (!status.source || *status.source == platform::PowerSource::kAc) return false;
  using enum platform::ChargeLevel;
  // Either may be missing.
  return status.level == kLow || status.level == kCritical || (status.percent && 3 * *status.percent < 100);
}

/// At a stop, which it has no right to hold up: the drive answered a moment ago, and a test left running harms nothing.
SelfTestOutcome Abort(const HardDisk& drive, const Tester& tester) {
  constexpr std::chrono::milliseconds kLimit = 1s;
  const auto aborted = drive.Do(tester.abort, nullptr, kLimit);
  return {{},
          aborted.content ? L"it was aborted, since the monitor stops"
                          : L"the monitor stops, and it could not be aborted: " + Words(aborted.silence)};
}

/// The result of the test that was just started; `before`: the drive's logs until then.
SelfTestOutcome Follow(platform::Runtime& runtime, const HardDisk& drive, const Tester& tester, const Look& before,
                       platform::Waitable& stop) {
  const std::chrono::minutes estimate = before.estimate;
  bool seen_running = false;
  constexpr std::chrono::milliseconds kFirst = 10s;  // some end at once
  constexpr std::chrono::milliseconds kBetween = 30s;
  const std::chrono::milliseconds most = 2 * estimate + 3min;
  std::chrono::milliseconds spent = 0ms;
  std::chrono::milliseconds pause = kFirst;
  while (spent < most) {
    if (runtime.Wait(stop, pause) != platform::kWaitTimeout) return Abort(drive, tester);
    spent += pause;
    pause = spent < estimate ? std::max(estimate - spent, kBetween) : kBetween;
    const auto look = tester.look(drive, &stop);
    if (look.silence == Silence::kStopped) return Abort(drive, tester);
    if (look.silence == Silence::kGone || look.silence == Silence::kHung || look.silence == Silence::kLeftAlone) {
      return {{}, Words(look.silence)};
    }
    if (!look.content) continue;
    seen_running = seen_running || look.content->running;
    if (look.content->running || !look.content->newest) continue;
    // What stood there before is no result of this test: a bridge may have dropped the command.
    if (seen_running || look.content->newest != before.newest) return {tester.words(look.content->newest->code), {}};
  }
  if (!seen_running) return {{}, L"the drive took the command, and shows no test"};
  drive.Do(tester.abort, &stop);
  return {L"Aborted, not completed in time", {}};
}

/// Gives the lane's self-test back.
struct Returner {
  void operator()(DriveLane* lane) const { lane->ReturnSelfTest(); }
};

}  // namespace

std::wstring AtaSelfTestWords(std::uint8_t code) {
  // ACS-4, table 147.
  constexpr std::array kWords = {L"Completed without error",
                                 L"Aborted by host",
                                 L"Interrupted by host with a reset",
                                 L"Fatal error, not completed",
                                 L"Completed, unknown element failed",
                                 L"Completed, electrical element failed",
                                 L"Completed, servo or seek element failed",
                                 L"Completed, read element failed",
                                 L"Completed, suspected handling damage"};
  return code < kWords.size() ? kWords[code] : TVK::FormatWide(L"Unknown result %u", unsigned{code});
}

std::wstring NvmeSelfTestWords(std::uint8_t code) {
  // NVM Express Base Specification 2.0c, figure 215.
  constexpr std::array kWords = {L"Completed without error",           L"Aborted by a self-test command",
                                 L"Aborted by a controller reset",     L"Aborted, namespace removed",
                                 L"Aborted by a format command",       L"Fatal error, not completed",
                                 L"Completed, unknown segment failed", L"Completed, segment failed",
                                 L"Aborted for unknown reason",        L"Aborted by a sanitize operation"};
  return code < kWords.size() ? kWords[code] : TVK::FormatWide(L"Unknown result %u", unsigned{code});
}

SelfTestOutcome RunShortSelfTest(platform::Runtime& runtime, platform::Power& power, const HardDisk& drive,
                                 platform::Waitable& stop) {
  const Tester* const tester = TesterOf(drive);
  if (tester == nullptr) return {{}, L"such a drive has no self-tests"};
  if (IsBatteryLow(power)) return {{}, L"the battery is low"};
  if (!drive.lane().TakeSelfTest()) return {.reason = L"another one is being run", .busy = true};
  const std::unique_ptr<DriveLane, Returner> taken(&drive.lane());
  const auto before = tester->look(drive, &stop);
  if (!before.content) return {{}, Words(before.silence)};
  if (!before.content->supported) return {{}, L"the drive has no self-tests"};
  if (before.content->running) return {.reason = L"the drive runs one already", .busy = true};
  const auto started = drive.Do(tester->start, &stop);
  if (started.silence == Silence::kStopped) return Abort(drive, *tester);  // it may have been started all the same
  if (!started.content) return {{}, Words(started.silence)};
  return Follow(runtime, drive, *tester, *before.content, stop);
}

}  // namespace StorageCollector
