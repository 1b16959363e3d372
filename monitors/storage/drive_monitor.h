// What the datasets of drives do alike: which drives they are about, and the dataset context of each.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "client/storage/hard_disk.h"
#include "framework/one_shot_timer.h"
#include "framework/scheduled_monitor.h"

namespace TVK {

/// A drive is told apart by the hash of its serial number; one that tells none is left out, with a line in the log.
/// Contexts follow the drives as they come and go. Without consent no drive is looked for.
class DriveMonitor : public ScheduledMonitor {
 public:
  void StopMonitor() override;
  /// Looks for the drives anew when one came or went, somewhat later on a thread of the monitor's.
  void OnSystemEvent(const platform::SystemEvent& event) override;

 protected:
  DriveMonitor(const MonitorServices& services, const MonitorIdentity& identity, std::optional<ReportRule> report);

  /// Whether the dataset is about this drive.
  virtual bool Qualifies(const StorageCollector::HardDisk& drive) const = 0;
  /// What the dataset context says of a drive beside its model and hashed serial number.
  virtual void AddFacts(const StorageCollector::HardDisk& drive, ItemData& facts) = 0;
  /// Logs which drive is described.
  virtual void LogDescribed(const std::wstring& model, const std::wstring& hashed_serial_number) const = 0;

  std::optional<std::vector<DescribedDevice>> Describe() override;

  /// A drive that is attached now, under the key of its context.
  struct KeyedDrive {
    std::wstring key;
    StorageCollector::HardDisk drive;
  };
  /// Those that the dataset is about, as they are now.
  std::vector<KeyedDrive> FindDrives();
  /// Begins to follow the drives as they come and go; at the start, behind the first dataset contexts.
  void FollowDrives();

 private:
  std::mutex arrivals_mutex_;               ///< Guards what follows.
  std::unique_ptr<OneShotTimer> arrivals_;  ///< Null before FollowDrives and after the stop.
  bool unnamed_told_ = false;
};

}  // namespace TVK
