// The drives and volumes of the machine as the storage dataset describes them.
#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <vector>

#include "client/log/limited_calls.h"
#include "client/log/log.h"
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
  /// `services` must outlive the object. `log`: for what the system does not tell.
  DiskInformation(const TVK::MonitorServices& services, TVK::Log log);

  /// The drives that are attached. The key of each is its hashed serial number, as in the other datasets of drives: one
  /// that sleeps or does not answer, and has not told who it is, has none yet, since the system may know it by another.
  /// Asks a drive no more than HardDiskInfoCollector::GetDrives does; ends early with the signal of `stop` (or null).
  std::vector<TVK::DescribedDevice> ReadDrives(platform::Waitable* stop);
  /// Whether all of them had told who they are.
  bool KnewAllDrives() const { return knew_all_drives_; }

  /// Waits for the volumes. Nothing, with an error line, when the system does not tell in time (a drive that hangs),
  /// and with the signal of `stop` (or null). Once, and not beyond the object.
  using AskedVolumes = std::function<std::optional<std::vector<DiskVolume>>(platform::Waitable* stop)>;
  /// Asks the system, beside which the drives can be asked.
  AskedVolumes AskVolumes();

 private:
  std::vector<DiskVolume> ToDiskVolumes(std::vector<platform::Volume> found) const;

  const TVK::MonitorServices& services_;
  const TVK::Log log_;
  TVK::LimitedCalls volume_calls_;
  std::atomic<bool> knew_all_drives_ = true;  ///< Those of the last ReadDrives.
};
