// What the datasets of drives do alike: which drives they are about, and the dataset context of each.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "client/storage/hard_disk.h"
#include "framework/scheduled_monitor.h"
#include "monitors/storage/drive_arrivals.h"

namespace TVK {

/// A drive is told apart by the hash of its serial number; one that tells none, and a second one with the same, are
/// left out, with a line in the log. One that sleeps or does not answer when it is found is left out until it tells who
/// it is. Contexts follow the drives as they come and go. Without consent no drive is looked for.
class DriveMonitor : public ScheduledMonitor {
 public:
  void StopMonitor() override;
  /// The drives are looked for anew when one came or went.
  void OnSystemEvent(const platform::SystemEvent& event) override;
  void ReadAndUpdateDatasetSettings() override;

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
  /// Those that the dataset is about, as they are now; none without consent.
  std::vector<KeyedDrive> FindDrives();
  /// The same for a round of records: drives that came without a word of the system are described first.
  std::vector<KeyedDrive> FindDescribedDrives();
  /// The first dataset contexts, and from now on those of the drives as they come and go. False when the monitor is to
  /// go no further: it is stopping, or is started anew since the drives could not be followed.
  bool DescribeDrives();

 private:
  DriveArrivals arrivals_;
  std::atomic<bool> left_out_told_ = false;
};

}  // namespace TVK
