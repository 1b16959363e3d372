#include "monitors/storage/drive_monitor.h"

#include <chrono>
#include <utility>

#include "platform/system_event.h"

namespace TVK {
namespace {

// A drive that is plugged in is announced some times, and before it can be asked.
constexpr std::chrono::seconds kSettling{3};

}  // namespace

DriveMonitor::DriveMonitor(const MonitorServices& monitor_services, const MonitorIdentity& identity,
                           std::optional<ReportRule> report)
    : ScheduledMonitor(monitor_services, identity, std::move(report)) {}

std::vector<DriveMonitor::KeyedDrive> DriveMonitor::FindDrives() {
  std::vector<KeyedDrive> found;
  for (StorageCollector::HardDisk& drive : services().hard_disks.GetDrives(stop_event())) {
    if (!Qualifies(drive)) continue;
    std::wstring key = drive.getHashedSerialNumber();
    if (!key.empty()) {
      found.push_back({std::move(key), std::move(drive)});
      continue;
    }
    const std::lock_guard lock(arrivals_mutex_);
    if (!std::exchange(unnamed_told_, true)) {
      log_.i(L"%s: %s tells no serial number and cannot be told apart; it is left out", Operation(L"FindDrives"),
             drive.getDrivePath());
    }
  }
  return found;
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
  return devices;
}

void DriveMonitor::FollowDrives() {
  auto arrivals = std::make_unique<OneShotTimer>(services().runtime, "tvk-drives", [this] {
    if (!stopping()) LogDatasetContext(false);
  });
  const std::lock_guard lock(arrivals_mutex_);
  if (!stopping()) arrivals_ = std::move(arrivals);
}

void DriveMonitor::OnSystemEvent(const platform::SystemEvent& event) {
  if (!std::holds_alternative<platform::DriveChange>(event)) return;
  const std::lock_guard lock(arrivals_mutex_);
  if (arrivals_ != nullptr) arrivals_->Arm(kSettling);
}

void DriveMonitor::StopMonitor() {
  ScheduledMonitor::StopMonitor();      // signals the stop, which ends what the drives are waited for
  std::unique_ptr<OneShotTimer> ended;  // outside of the lock: it waits for what runs
  {
    const std::lock_guard lock(arrivals_mutex_);
    ended = std::move(arrivals_);
  }
}

}  // namespace TVK
