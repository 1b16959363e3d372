// Finds the drives of the machine and remembers what must be remembered of each.
#pragma once

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "client/log/limited_calls.h"
#include "client/log/log.h"
#include "client/storage/hard_disk.h"
#include "platform/drives.h"
#include "platform/runtime.h"

namespace StorageCollector {

/// An attached drive, before anybody asks it anything.
struct HardDiskBasicInfo {
  platform::DriveListing listing;
};

/// One for all who ask drives, so that nobody asks one that another one knows to hang. Nothing runs in between. Any
/// thread.
class HardDiskInfoCollector {
 public:
  /// Both must outlive the object.
  HardDiskInfoCollector(platform::Runtime& runtime, platform::Drives& drives);
  HardDiskInfoCollector(const HardDiskInfoCollector&) = delete;
  HardDiskInfoCollector& operator=(const HardDiskInfoCollector&) = delete;

  /// The drives that are attached now. When the system does not tell in time, or `stop` comes first, those that it
  /// told last.
  std::vector<HardDiskBasicInfo> GetAllPhysicalDrivePaths(platform::Waitable* stop = nullptr);

  /// The drive, which is asked what it is unless that is known for good. One that does not answer is what the system
  /// knows of it.
  HardDisk GetDriveInstance(const HardDiskBasicInfo& drive, platform::Waitable* stop = nullptr);

  /// All that are attached, asked side by side, so that those that do not answer hold each other up no more than one
  /// does. Each once: the namespaces of an NVMe drive, and the paths to a drive that has several, are
  /// one drive, by model and serial number.
  std::vector<HardDisk> GetDrives(platform::Waitable* stop = nullptr);

 private:
  /// The drive, with what is remembered of it.
  HardDisk Know(const platform::DriveListing& listing);

  struct KnownDrive {
    platform::DriveListing listing;
    std::shared_ptr<DriveLane> lane;
  };

  platform::Runtime& runtime_;
  platform::Drives& drives_;
  TVK::Log log_;
  TVK::LimitedCalls listing_calls_;
  std::mutex mutex_;  ///< Guards what follows; held for a look.
  std::vector<platform::DriveListing> listed_;
  std::vector<KnownDrive> known_;  ///< The drives of listed_ that were asked for.
};

}  // namespace StorageCollector
