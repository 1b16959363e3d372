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

/// What a drive says of its self-tests.
struct Look {
  bool supported = false;
  bool running = false;
  std::chrono::minutes estimate{2};
  std::optional<std::uint8_t> newest = {};  ///< What the newest short one came to.
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
  const auto entry = drive.ReadAtaSelfTestLog(stop);
  // The status byte tells of the newest test too, only not which it was.
  look.newest =
      entry.content && entry.content->subcommand == kShort ? entry.content->status.code : smart.content->self_test.code;
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
  if (log.content->newest && log.content->newest->code == kShort) look.newest = log.content->newest->result;
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
  return status.source && *status.source != platform::PowerSource::kAc && status.percent &&
         *status.percent < kLeastBatteryPercent;
}

/// The result of the test that was just started.
SelfTestOutcome Follow(platform::Runtime& runtime, const HardDisk& drive, const Tester& tester,
                       std::chrono::minutes estimate, platform::Waitable& stop) {
  constexpr std::chrono::milliseconds kFirst = 10s;  // some end at once
  constexpr std::chrono::milliseconds kBetween = 30s;
  const std::chrono::milliseconds most = 2 * estimate + 3min;
  // An abort has no right to hold up a stop: the drive answered a moment ago, and a test left running harms nothing.
  constexpr std::chrono::milliseconds kAbortLimit = 1s;
  std::chrono::milliseconds spent = 0ms;
  std::chrono::milliseconds pause = kFirst;
  while (spent < most) {
    if (runtime.Wait(stop, pause) != platform::kWaitTimeout) {
      drive.Do(tester.abort, nullptr, kAbortLimit);
      return {{}, L"it was aborted, since the monitor stops"};
    }
    spent += pause;
    pause = spent < estimate ? std::max(estimate - spent, kBetween) : kBetween;
    const auto look = tester.look(drive, &stop);
    if (look.silence == Silence::kGone || look.silence == Silence::kHung || look.silence == Silence::kLeftAlone) {
      return {{}, Words(look.silence)};
    }
    if (look.content && !look.content->running && look.content->newest) {
      return {tester.words(*look.content->newest), {}};
    }
  }
  drive.Do(tester.abort, nullptr);
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
  if (!drive.lane().TakeSelfTest()) return {{}, L"another one is being run"};
  const std::unique_ptr<DriveLane, Returner> taken(&drive.lane());
  const auto before = tester->look(drive, &stop);
  if (!before.content) return {{}, Words(before.silence)};
  if (!before.content->supported) return {{}, L"the drive has no self-tests"};
  if (before.content->running) return {{}, L"the drive runs one already"};
  const auto started = drive.Do(tester->start, &stop);
  if (!started.content) return {{}, Words(started.silence)};
  return Follow(runtime, drive, *tester, before.content->estimate, stop);
}

}  // namespace StorageCollector
