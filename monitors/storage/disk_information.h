// The drives and volumes of the machine as the storage dataset describes them.
#pragma once

#include <vector>

#include "framework/dataset_monitor.h"
#include "framework/monitor_services.h"
#include "platform/volumes.h"

/// A volume, and how it is described.
struct DiskVolume {
  platform::Volume volume;
  TVK::DescribedDevice device;
};

/// Serial numbers and the ids of volumes leave it hashed only. Where two things would have the same key (drives without
/// a serial number, copies of a file system) the later ones are numbered. Any thread.
class DiskInformation {
 public:
  /// `services` must outlive the object.
  explicit DiskInformation(const TVK::MonitorServices& services) : services_(services) {}

  /// The drives that are attached. The key of each is its hashed serial number, as in the other datasets of drives.
  /// Asks a drive no more than HardDiskInfoCollector::GetDrives does; ends early with the signal of `stop` (or null).
  std::vector<TVK::DescribedDevice> ReadDrives(platform::Waitable* stop) const;

  std::vector<DiskVolume> ReadVolumes() const;

 private:
  const TVK::MonitorServices& services_;
};
