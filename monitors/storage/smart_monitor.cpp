#include "monitors/storage/smart_monitor.h"

#include <algorithm>
#include <utility>

namespace TVK {

SmartMonitor::SmartMonitor(const MonitorServices& monitor_services, const MonitorIdentity& identity,
                           const SmartMonitorTraits& traits, std::optional<ReportRule> report)
    : DriveMonitor(monitor_services, identity, std::move(report)), traits_(traits) {}

void SmartMonitor::Initialize() {
  DriveMonitor::Initialize();
  MakeStopEvent(Operation(L"Initialize").c_str(), L"%s: CreateEvent() return error %d!", traits_.stop_event);
}

void SmartMonitor::StartMonitor(std::wstring /*name*/) {
  constexpr std::uint32_t kStoreContextLimitMs = 60'000;
  const std::wstring caller = Operation(L"StartMonitor");
  log_.d(L"%s: Entry", caller);
  if (stop_event() == nullptr) return;
  const bool found = WaitForContextsOf(DatasetRowNamed(L"StorageEvent"), kStoreContextLimitMs);
  traits_.log_start(log_, caller, stopping(), found);
  if (stopping()) return;
  if (!DescribeDrives()) return;
  InitialiseDevice();
  if (!stopping()) Begin();
}

void SmartMonitor::AddFacts(const StorageCollector::HardDisk& drive, ItemData& facts) {
  if (traits_.bus_type != nullptr) facts[L"DriveBusType"] = traits_.bus_type;
  facts[L"DriveType"] = drive.getDriveType();
}

void SmartMonitor::LogDescribed(const std::wstring& model, const std::wstring& hashed_serial_number) const {
  log_.d(L"%s: Model:\"%s\", Hashed SerialNumber:\"%s\"", Operation(L"LogDatasetContext"), model, hashed_serial_number);
}

bool SmartMonitor::TakesDeviceInit(const std::wstring& device_key) {
  const std::wstring caller = Operation(L"LogDevInitEvent");
  const std::vector<KeyedDrive> drives = FindDrives();
  const auto found = std::ranges::find(drives, device_key, &KeyedDrive::key);
  if (found == drives.end()) return false;
  if (!found->drive.supports_smart()) {
    log_.d(L"%s: Run DeviceInit %s doesn't support Smart Feature!", caller, found->drive.getProductName());
    return false;
  }
  return true;
}

void SmartMonitor::LogHealth(const wchar_t* item, const std::wstring& caller, MonitorLine without_context) {
  std::vector<KeyedDrive> drives = FindDescribedDrives();
  std::erase_if(drives, [&](const KeyedDrive& one) {
    if (!HasContext(one.key)) {
      log_.e(L"%s", without_context.With({caller}));
      return true;
    }
    if (one.drive.supports_smart()) return false;
    log_.d(L"%s: Run DeviceInit %s doesn't support Smart Feature!!", caller, one.drive.getProductName());
    return true;
  });
  if (stopping() || !Admits()) return;
  std::vector<AskedHealth> asked;
  for (const auto& [key, drive] : drives)
    asked.push_back(AskHealth(drive));
  for (std::size_t i = 0; i < drives.size(); ++i) {
    const auto& [key, drive] = drives[i];
    std::optional<ItemData> health = asked[i]();
    if (stopping() || !Admits()) return;
    if (!health) continue;
    const int error = WriteItem(item, std::move(*health), key);
    if (error <= 0) continue;
    if (item == kPerSession) {
      log_.e(L"%s: Model: %s, Return error: %d", caller, drive.getProductName(), error);
    } else {
      log_.e(L"%s: Model :%s, Return error: %d", caller, drive.getProductName(), error);
    }
  }
}

void SmartMonitor::LogItemEvent() {
  LogHealth(kPerDay, Operation(L"LogItemEvent"), traits_.item_without_context);
}

}  // namespace TVK
