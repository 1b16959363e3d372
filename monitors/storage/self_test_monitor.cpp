#include "monitors/storage/self_test_monitor.h"

#include <chrono>
#include <utility>

#include "client/storage/self_testing.h"

namespace TVK {
namespace {

constexpr const DatasetRow& kStorageRow = DatasetRowNamed(L"StorageEvent");
/// State of the dataset: the drives that a round has not come to yet.
constexpr wchar_t kUntested[] = L"UntestedDrives";

std::wstring KeyInList(const std::wstring& key) {
  return key + L' ';
}

}  // namespace

SelfTestMonitor::SelfTestMonitor(const MonitorServices& monitor_services, const MonitorIdentity& identity,
                                 const SelfTestMonitorTraits& traits, const wchar_t* settings_caller)
    : DriveMonitor(monitor_services, identity,
                   ReportRule{.item = kResult,
                              .report = [this] { LogItemEvent(); },
                              .caller = settings_caller,
                              .invalid_interval = L"%s: Invalid DatasetSettings RunSelfTestInterval = %d",
                              .least_interval_ms = kLeastSelfTestIntervalMs,
                              .first_is_due = true}),
      traits_(traits) {}

void SelfTestMonitor::StartMonitor(std::wstring /*name*/) {
  constexpr std::uint32_t kContextLimitMs = 60'000;
  const std::wstring caller = Operation(L"StartMonitor");
  if (!MakeStopEvent(caller.c_str(), traits_.event_failure)) return;
  const bool found =
      WaitForContextsOf(kStorageRow, kContextLimitMs) && WaitForContextsOf(traits_.smart_row, kContextLimitMs);
  traits_.log_start(log_, stopping(), found);
  if (stopping() || !found) {
    log_.e(L"%s: Service Stop/smart event datasetcontext not logged.", caller);
    return;
  }
  if (!DescribeDrives()) return;
  FollowSettings();
  if (IsRestOwed()) StartThread("tvk-self-test", [this] { RunRound(Round::kRest); });
}

bool SelfTestMonitor::UpdateThrottleParameters(std::map<std::wstring, std::wstring>& settings) {
  const std::wstring caller = Operation(L"UpdateThrottleParameters");
  const SelfTestSettings fresh = traits_.read_settings(settings);
  if (fresh.raised) log_.d(L"%s Set RunSelfTestInterval to minimum: 1h", caller);
  interval_ms_ = fresh.interval_ms;
  const bool changed = TakeInterval(fresh.interval_ms, fresh.readings);
  log_.d(L"%s: _run_self_test_interval = %llu, bRunSelfTestIntervalChanged = %d", caller,
         std::uint64_t{fresh.interval_ms}, changed);
  return changed;
}

bool SelfTestMonitor::Qualifies(const StorageCollector::HardDisk& drive) const {
  return drive.kind() == traits_.kind;
}

std::wstring SelfTestMonitor::ContextIn(const DatasetRow& row, const std::wstring& key) const {
  DatasetContext context;
  const int found = services().store.GetLastDatasetContextOfDevice(std::wstring(row.id), key, context);
  return found == 0 ? context.dataset_context_id() : std::wstring();
}

void SelfTestMonitor::AddFacts(const StorageCollector::HardDisk& drive, ItemData& facts) {
  const std::wstring key = drive.getHashedSerialNumber();
  facts[L"DriveBusType"] = traits_.bus_type;
  facts[L"DriveType"] = drive.getDriveType();
  facts[traits_.smart_context_key] = ContextIn(traits_.smart_row, key);
  facts[L"storage_dataset_context_id"] = ContextIn(kStorageRow, key);
}

void SelfTestMonitor::LogDescribed(const std::wstring& model, const std::wstring& hashed_serial_number) const {
  log_.d(L"%s", traits_.described.With({model, hashed_serial_number}));
}

std::wstring SelfTestMonitor::ReadUntested() const {
  std::wstring untested;
  services().store.GetState(std::wstring(identity().row.id), kUntested, untested);
  return untested;
}

bool SelfTestMonitor::IsRestOwed() {
  if (interval_ms_ < kLeastSelfTestIntervalMs || ReadUntested().empty()) return false;
  const std::wstring dataset(identity().row.id);
  ItemEvent result;
  // Without any the whole round is due.
  if (services().store.GetLastItemEventWithItemId(dataset, identity().items.at(kResult), result) != 0) return false;
  std::int64_t last = 0;
  getLastItemEventTimeStampWithFallback(dataset, identity().items.at(kResult), last);
  std::uint64_t delay = 0;
  isItemEventElapsed(last, static_cast<int>(interval_ms_ / 1000), delay);
  return delay != 0;
}

bool SelfTestMonitor::BeginRound(Round round) {
  const std::lock_guard lock(round_mutex_);
  if (round_) {
    whole_owed_ = whole_owed_ || (round == Round::kWhole && round_ == Round::kRest);
    return false;
  }
  round_ = round;
  return true;
}

bool SelfTestMonitor::GoesOnToWhole() {
  const std::lock_guard lock(round_mutex_);
  round_.reset();
  if (std::exchange(whole_owed_, false)) round_ = Round::kWhole;
  return round_.has_value();
}

void SelfTestMonitor::RunRound(Round round) {
  if (!BeginRound(round)) return;
  try {
    TestRound(round);
    while (GoesOnToWhole())
      TestRound(Round::kWhole);
  } catch (...) {
    const std::lock_guard lock(round_mutex_);
    round_.reset();
    throw;
  }
}

void SelfTestMonitor::TestRound(Round round) {
  LogDatasetContext(false);  // the drives' contexts in the other datasets may be newer ones by now
  std::vector<KeyedDrive> drives = FindDrives();
  std::wstring untested = round == Round::kRest ? ReadUntested() : std::wstring();
  if (round == Round::kRest) {
    std::erase_if(drives, [&](const KeyedDrive& one) { return untested.find(KeyInList(one.key)) == untested.npos; });
  } else if (!drives.empty()) {
    for (const KeyedDrive& one : drives)
      untested += KeyInList(one.key);
    services().store.KeepState(std::wstring(identity().row.id), {kUntested, untested});
  }
  // A test that a drive runs is mostly that of a life that was killed.
  constexpr std::chrono::minutes kBusy{10};
  const std::vector<KeyedDrive> busy = TestDrives(drives, untested);
  if (!busy.empty() && services().runtime.Wait(*stop_event(), kBusy) == platform::kWaitTimeout) {
    TestDrives(busy, untested);
  }
}

std::vector<SelfTestMonitor::KeyedDrive> SelfTestMonitor::TestDrives(const std::vector<KeyedDrive>& drives,
                                                                     std::wstring& untested) {
  const std::wstring caller = Operation(L"LogItemEvent");
  std::vector<KeyedDrive> busy;
  for (const KeyedDrive& one : drives) {
    const auto& [key, drive] = one;
    if (stopping() || !Admits()) return {};
    if (!HasContext(key)) {
      log_.e(L"%s: SerialNumber can NOT be found in SmartDatasetContextIdMap!", caller);
      continue;
    }
    const auto outcome =
        StorageCollector::RunShortSelfTest(services().runtime, services().machine.power(), drive, *stop_event());
    if (outcome.result.empty()) {
      log_.i(L"%s: there is no result of a self-test of %s: %s", caller, drive.getProductName(), outcome.reason);
      if (stopping()) return {};
    }
    if (outcome.busy) {
      busy.push_back(one);
      continue;
    }
    std::wstring left = untested;
    left.erase(left.find(KeyInList(key)), KeyInList(key).size());
    if (outcome.result.empty()) {
      services().store.KeepState(std::wstring(identity().row.id), {kUntested, left});
    } else if (WriteItem(kResult, {{L"TestType", L"short"}, {L"TestResult", outcome.result}}, key, {kUntested, left}) >
               0) {
      continue;  // its result is still to be told
    }
    untested = std::move(left);
  }
  return busy;
}

}  // namespace TVK
