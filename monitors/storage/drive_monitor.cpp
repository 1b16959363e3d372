#include "monitors/storage/drive_monitor.h"

#include <algorithm>
#include <utility>

namespace TVK {

DriveMonitor::DriveMonitor(const MonitorServices& monitor_services, const MonitorIdentity& identity,
                           std::optional<ReportRule> report)
    : ScheduledMonitor(monitor_services, identity, std::move(report)) {}

std::vector<DriveMonitor::KeyedDrive> DriveMonitor::FindDrives() {
  std::vector<KeyedDrive> found;
  if (!Admits()) return found;
  for (StorageCollector::HardDisk& drive : services().hard_disks.GetDrives(stop_event())) {
    if (!Qualifies(drive) || !drive.identified()) continue;
    std::wstring key = drive.getHashedSerialNumber();
    if (!key.empty() && std::ranges::find(found, key, &KeyedDrive::key) == found.end()) {
      found.push_back({std::move(key), std::move(drive)});
    } else if (!left_out_told_.exchange(true)) {
      log_.i(L"%s: %s tells no serial number, or another drive's, and cannot be told apart; it is left out",
             Operation(L"FindDrives"), drive.getDrivePath());
    }
  }
  return found;
}

std::vector<DriveMonitor::KeyedDrive> DriveMonitor::FindDescribedDrives() {
  std::vector<KeyedDrive> drives = FindDrives();
  const bool all = std::ranges::all_of(drives, [this](const KeyedDrive& drive) { return HasContext(drive.key); });
  if (!all) LogDatasetContext(false);
  return drives;
}

std::optional<std::vector<DescribedDevice>> DriveMonitor::Describe() {
  std::vector<DescribedDevice> devices;
  for (const auto& [key, drive] : FindDrives()) {
    ItemData facts = {{L"Model", drive.getProductName()}, {L"SerialNumber", key}};
    AddFacts(drive, facts);
    SanitizeItemData(facts, L"UnKnown");
    LogDescribed(drive.getProductName(), key);
    devices.push_back({key, std::move(facts)});
  }
  if (stopping()) return std::nullopt;  // perhaps not all of them
  return devices;
}

bool DriveMonitor::DescribeDrives() {
  // Before the drives are looked at, so that none comes unseen in between.
  if (!arrivals_.Follow(services().runtime, log_, [this] { LogDatasetContext(false); })) {
    TellShortage(Shortage::kStart);
    return false;
  }
  LogDatasetContext(false);
  return !stopping();
}

void DriveMonitor::OnSystemEvent(const platform::SystemEvent& event) {
  if (!arrivals_.OnSystemEvent(event)) TellShortage(Shortage::kSettings);
}

void DriveMonitor::ReadAndUpdateDatasetSettings() {
  ScheduledMonitor::ReadAndUpdateDatasetSettings();
  if (!arrivals_.Retry()) TellShortage(Shortage::kSettings);
}

void DriveMonitor::StopMonitor() {
  ScheduledMonitor::StopMonitor();  // first: its event ends a look at drives that do not answer
  arrivals_.End();
}

}  // namespace TVK
