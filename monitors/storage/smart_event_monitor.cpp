#include "monitors/storage/smart_event_monitor.h"

#include <algorithm>
#include <utility>

namespace {

constexpr wchar_t kThreshold[] = L"ThresholdExceedsCondition";
constexpr int kDaySeconds = 86'400;

constexpr TVK::MonitorLines kLines = {
    .log_opened = L"SmartEventMonitor Log Intialize OK!",
    .context_decision = L"%s: LogDatasetContext bIsNeedNewDatasetContext is %s.",
    .context_failure = L"%s: LogDatasetContext LogDatasetContext() return error: %d",
    .init_failure = L"SmartEventMonitor LogDevInitEvent failed",
    .item_failure = {},
};

constexpr TVK::MonitorLine kWithoutContext = L"%s: SerialNumber can NOT be found in SmartDatasetContextIdMap!";

constexpr TVK::SmartMonitorTraits kTraits = {
    .stop_event = L"SmartEventMonitor_StopEvent",
    .bus_type = nullptr,
    .item_without_context = kWithoutContext,
    .snapshot_without_context = kWithoutContext,
    .log_start =
        [](const TVK::Log& log, const std::wstring&, bool stopping, bool found) {
          log.d(L"SmartEventMonitor::StartMonitor,_bRequestStop=%d,foundStoreContextId=%d", stopping, found);
        },
};

/// What the store keeps of a drive's last finding, "ReallocatedSectorCount=12"; empty once the drive was well again.
std::wstring StateKey(const std::wstring& key) {
  return L"threshold " + key;
}
TVK::DatasetState StateOf(const std::wstring& key, const StorageCollector::HardDiskSmartInfo& found) {
  return {StateKey(key), found.getName() + L"=" + std::to_wstring(found.getAttribute().normalized)};
}

}  // namespace

const std::map<std::wstring, std::wstring> SmartEventMonitor::ITEM_EVENT_CONTEXT = {
    {kPerDay, L"69040501-E2A6-461C-816B-22D34AE13B69"},
    {kThreshold, L"7D09F865-18BA-4CE2-A41E-F35ED9B965BA"},
};

SmartEventMonitor::SmartEventMonitor(const TVK::MonitorServices& monitor_services)
    : SmartMonitor(monitor_services, {kRow, ITEM_EVENT_CONTEXT, kLines}, kTraits, std::nullopt) {}

bool SmartEventMonitor::Qualifies(const StorageCollector::HardDisk& drive) const {
  return drive.kind() == StorageCollector::DriveKind::kSataSsd || drive.kind() == StorageCollector::DriveKind::kAta;
}

SmartEventMonitor::AskedHealth SmartEventMonitor::AskHealth(const StorageCollector::HardDisk& drive) {
  return [this, drive, asked = drive.AskAtaSmart()]() -> std::optional<ItemData> {
    const auto reading = asked(stop_event());
    if (!reading.content) return std::nullopt;
    told_.push_back({drive.getHashedSerialNumber(), drive.getProductName(), *reading.content});
    return info_.ToItemData(*reading.content);
  };
}

void SmartEventMonitor::Begin() {
  getLastItemEventTimeStampWithFallback(dataset_id, ITEM_EVENT_CONTEXT.at(kPerDay), last_day_);
  StartThread("tvk-smart", [this] {
    CheckThresholds();
    WatchSeconds("SmartEventMonitor", [this] { return LookAtDay(); });
  });
}

TVK::SecondTick::Work SmartEventMonitor::LookAtDay() {
  // A clock that was set back may not silence it until that time comes again.
  last_day_ = std::min(last_day_, services().runtime.clock().NowSeconds());
  if (!isItemEventElapsed(last_day_, kDaySeconds)) return nullptr;
  return [this] {
    // Whatever comes of it: a drive that does not tell today is asked tomorrow.
    last_day_ = services().runtime.clock().NowSeconds();
    LogItemEvent();
    for (const Told& told : std::exchange(told_, {}))
      CheckThresholds(told);
  };
}

void SmartEventMonitor::CheckThresholds() {
  std::vector<KeyedDrive> drives = FindDescribedDrives();
  std::erase_if(drives, [&](const KeyedDrive& one) { return !HasContext(one.key) || !one.drive.supports_smart(); });
  if (stopping() || !Admits()) return;
  std::vector<StorageCollector::Asked<TVK::AtaSmart>> asked;
  for (const auto& [key, drive] : drives)
    asked.push_back(drive.AskAtaSmart());
  for (std::size_t i = 0; i < drives.size(); ++i) {
    const auto& [key, drive] = drives[i];
    const auto reading = asked[i](stop_event());
    if (reading.content) CheckThresholds({key, drive.getProductName(), *reading.content});
  }
}

void SmartEventMonitor::CheckThresholds(const Told& told) {
  if (stopping() || !Admits()) return;
  const auto found = info_.FoundPredictFailure(told.smart);
  if (!found && SmartInfo::TellsThresholds(told.smart)) ForgetThresholdEntry(told.key);
  const int error = found ? CheckThresholdEntry(told.key, *found) : 0;
  if (error > 0) {
    log_.e(L"%s: Model :%s, Return error: %d", Operation(L"CheckThresholdEntry"), told.model, error);
  }
}

int SmartEventMonitor::CheckThresholdEntry(const std::wstring& key, const StorageCollector::HardDiskSmartInfo& found) {
  const TVK::DatasetState now = StateOf(key, found);
  std::wstring kept;
  services().store.GetState(dataset_id, now.key, kept);
  const auto equals = kept.find(L'=');
  log_.d(L"%s: SmartCheckEntry found %s, existed %s=%s", Operation(L"CheckThresholdEntry"), found.getName(),
         kept.substr(0, equals), equals == kept.npos ? std::wstring() : kept.substr(equals + 1));
  if (kept == now.value) return 0;
  return WriteItem(kThreshold, {{found.getName(), SmartInfo::ValueText(found.getAttribute(), true)}}, key, now);
}

void SmartEventMonitor::ForgetThresholdEntry(const std::wstring& key) {
  std::wstring kept;
  const int error = services().store.GetState(dataset_id, StateKey(key), kept);
  if (error == 0 && !kept.empty()) services().store.KeepState(dataset_id, {StateKey(key), {}});
}
