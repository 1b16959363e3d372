#include "client/storage/hard_disk_info_collector.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <string>

#include "client/text/string.h"

namespace StorageCollector {
namespace {

TVK::Log OpenLog() {
  TVK::Log log;
  TVK::utility::InitLog(log, L"StorageCollector.log", 4);
  return log;
}

/// What else is told of one may change, as with its medium.
bool IsSameDrive(const platform::DriveListing& one, const platform::DriveListing& other) {
  return one.path == other.path && one.bus == other.bus && one.model == other.model &&
         one.serial_number == other.serial_number;
}

}  // namespace

HardDiskInfoCollector::HardDiskInfoCollector(platform::Runtime& runtime, platform::Drives& drives)
    : runtime_(runtime), drives_(drives), log_(OpenLog()), listing_calls_(runtime, log_, "tvk-drives") {}

std::vector<HardDiskBasicInfo> HardDiskInfoCollector::GetAllPhysicalDrivePaths(platform::Waitable* stop) {
  const auto found = std::make_shared<std::vector<platform::DriveListing>>();
  const auto outcome = listing_calls_.Run(
      [found, owned = drives_.weak_from_this().lock(), &drives = drives_] { *found = drives.List(); },
      DriveLane::kSessionLimit, stop);
  const std::lock_guard lock(mutex_);
  if (outcome == TVK::LimitedCalls::Outcome::kDone) {
    listed_ = std::move(*found);
    // One that was attached anew is another drive, and gets another chance.
    std::erase_if(known_, [&](const KnownDrive& known) {
      return std::ranges::none_of(listed_, [&](const auto& listing) { return IsSameDrive(listing, known.listing); });
    });
  } else if (outcome != TVK::LimitedCalls::Outcome::kStopped) {
    log_.e(L"%s: the system does not tell its drives; those of the last time are taken",
           L"HardDiskInfoCollector::GetAllPhysicalDrivePaths");
  }
  std::vector<HardDiskBasicInfo> drives;
  std::ranges::transform(listed_, std::back_inserter(drives),
                         [](const auto& drive) { return HardDiskBasicInfo{drive}; });
  return drives;
}

HardDisk HardDiskInfoCollector::GetDriveInstance(const HardDiskBasicInfo& drive, platform::Waitable* stop) {
  std::shared_ptr<DriveLane> lane;
  {
    const std::lock_guard lock(mutex_);
    const auto known =
        std::ranges::find_if(known_, [&](const KnownDrive& one) { return IsSameDrive(one.listing, drive.listing); });
    if (known != known_.end()) {
      lane = known->lane;
    } else {
      lane = std::make_shared<DriveLane>(runtime_, log_, TVK::String::UTF8ToUTF16(drive.listing.path));
      known_.push_back({drive.listing, lane});
    }
  }
  HardDisk disk(drives_, drive.listing, std::move(lane));
  disk.Identify(stop);
  return disk;
}

std::vector<HardDisk> HardDiskInfoCollector::GetDrives(platform::Waitable* stop) {
  std::vector<HardDisk> drives;
  std::set<std::pair<std::wstring, std::wstring>> seen;
  for (const HardDiskBasicInfo& basic : GetAllPhysicalDrivePaths(stop)) {
    HardDisk drive = GetDriveInstance(basic, stop);
    const std::wstring serial_number = drive.getSerialNumber();
    if (serial_number.empty() || seen.emplace(drive.getProductName(), serial_number).second) {
      drives.push_back(std::move(drive));
    }
  }
  return drives;
}

}  // namespace StorageCollector
