#include "client/storage/hard_disk_info_collector.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <set>
#include <string>

#include "client/log/service_logs.h"
#include "client/text/string.h"

namespace StorageCollector {
namespace {

TVK::Log OpenLog() {
  TVK::Log log;
  TVK::utility::InitLog(log, TVK::ServiceLog(L"StorageCollector.log"), 4);
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
  const auto outcome =
      listing_calls_
          .Begin([found, owned = drives_.weak_from_this().lock(), &drives = drives_] { *found = drives.List(); },
                 DriveLane::kSessionLimit)
          .Await(stop);
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

HardDisk HardDiskInfoCollector::Know(const platform::DriveListing& listing) {
  const std::lock_guard lock(mutex_);
  const auto known =
      std::ranges::find_if(known_, [&](const KnownDrive& one) { return IsSameDrive(one.listing, listing); });
  if (known != known_.end()) return {drives_, listing, known->lane};
  known_.push_back({listing, std::make_shared<DriveLane>(runtime_, log_, TVK::String::UTF8ToUTF16(listing.path))});
  return {drives_, listing, known_.back().lane};
}

HardDisk HardDiskInfoCollector::GetDriveInstance(const HardDiskBasicInfo& drive, platform::Waitable* stop) {
  HardDisk disk = Know(drive.listing);
  if (const auto identify = disk.AskIdentity()) identify(stop);
  return disk;
}

std::vector<HardDisk> HardDiskInfoCollector::GetDrives(platform::Waitable* stop) {
  std::vector<HardDisk> drives;
  std::vector<std::function<void(platform::Waitable*)>> asked;
  for (const HardDiskBasicInfo& basic : GetAllPhysicalDrivePaths(stop)) {
    drives.push_back(Know(basic.listing));
    if (auto identify = drives.back().AskIdentity()) asked.push_back(std::move(identify));
  }
  for (const auto& identify : asked)
    identify(stop);
  std::set<std::pair<std::wstring, std::wstring>> seen;
  std::erase_if(drives, [&](const HardDisk& drive) {
    const std::wstring serial_number = drive.getSerialNumber();
    return !serial_number.empty() && !seen.emplace(drive.getProductName(), serial_number).second;
  });
  return drives;
}

}  // namespace StorageCollector
