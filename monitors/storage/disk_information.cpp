#include "monitors/storage/disk_information.h"

#include <memory>
#include <set>
#include <utility>

#include "client/storage/hard_disk_info_collector.h"
#include "client/text/hash_utility.h"
#include "client/text/string.h"
#include "platform/system_facts.h"

namespace {

using TVK::String;

std::wstring BoolText(bool value) {
  return value ? L"true" : L"false";
}

std::wstring RoleText(platform::VolumeRole role) {
  switch (role) {
    case platform::VolumeRole::kSystem:
      return L"system";
    case platform::VolumeRole::kRemovable:
      return L"removable";
    case platform::VolumeRole::kData:
      break;
  }
  return L"data";
}

/// Gives each key once.
class UniqueKeys {
 public:
  std::wstring Take(const std::wstring& key) {
    std::wstring unique = key;
    for (int number = 2; !taken_.insert(unique).second; ++number)
      unique = key + L' ' + std::to_wstring(number);
    return unique;
  }

 private:
  std::set<std::wstring> taken_;
};

/// That people put it in and take it with them. Cards count: which of them are soldered on is not told.
bool IsPortable(const platform::DriveListing& drive) {
  return drive.removable || drive.bus == platform::DriveBus::kUsb || drive.bus == platform::DriveBus::kCard;
}

}  // namespace

DiskInformation::DiskInformation(const TVK::MonitorServices& services, TVK::Log log)
    : services_(services), log_(std::move(log)), volume_calls_(services.runtime, log_, "tvk-volumes") {}

std::vector<TVK::DescribedDevice> DiskInformation::ReadDrives(platform::Waitable* stop) {
  UniqueKeys keys;
  std::vector<TVK::DescribedDevice> devices;
  bool all = true;
  for (const StorageCollector::HardDisk& drive : services_.hard_disks.GetDrives(stop)) {
    const bool portable = IsPortable(drive.listing());
    const bool identified = drive.identified();
    all = all && identified;
    const std::wstring serial_number = identified ? drive.getHashedSerialNumber() : std::wstring();
    const std::wstring key =
        serial_number.empty() ? L"drive " + drive.getDriveType() + L' ' + drive.getProductName() : serial_number;
    TVK::DescribedDevice device{.key = keys.Take(key),
                                .facts = {{L"Kind", L"drive"},
                                          {L"Model", drive.getProductName()},
                                          {L"SerialNumber", serial_number},
                                          {L"FirmwareVersion", drive.getFirmwareVersion()},
                                          {L"DriveType", drive.getDriveType()},
                                          {L"Removable", BoolText(portable)}},
                                .of_use = portable};
    if (drive.listing().bytes != 0) device.facts[L"Size"] = std::to_wstring(drive.listing().bytes);
    devices.push_back(std::move(device));
  }
  knew_all_drives_ = all;
  return devices;
}

DiskInformation::AskedVolumes DiskInformation::AskVolumes() {
  const auto found = std::make_shared<std::vector<platform::Volume>>();
  auto call =
      volume_calls_.Begin([found, door = services_.machine.volumes().shared_from_this()] { *found = door->List(); },
                          StorageCollector::DriveLane::kSessionLimit);
  return [this, found,
          call = std::move(call)](platform::Waitable* stop) mutable -> std::optional<std::vector<DiskVolume>> {
    using Outcome = TVK::LimitedCalls::Outcome;
    const Outcome outcome = call.Await(stop);
    if (outcome == Outcome::kTimedOut || outcome == Outcome::kBusy) {
      log_.e(L"%s: the system does not tell of its volumes in time", L"DiskInformation::AskVolumes");
    }
    if (outcome != Outcome::kDone) return std::nullopt;
    return ToDiskVolumes(std::move(*found));
  };
}

std::vector<DiskVolume> DiskInformation::ToDiskVolumes(std::vector<platform::Volume> found) const {
  // So that a stick cannot be followed from machine to machine.
  const std::wstring salt = L"tvk/storage " + String::UTF8ToUTF16(services_.machine.system().ReadInstallationId());
  UniqueKeys keys;
  std::vector<DiskVolume> volumes;
  for (platform::Volume& volume : found) {
    const std::wstring id = keys.Take(TVK::HashUtility::Hash(String::UTF8ToUTF16(volume.id), salt));
    TVK::DescribedDevice device{.key = L"volume " + id,
                                .facts = {{L"Kind", L"volume"},
                                          {L"VolumeId", id},
                                          {L"VolumeRole", RoleText(volume.role)},
                                          {L"FileSystem", String::UTF8ToUTF16(volume.file_system)}},
                                .of_use = volume.role == platform::VolumeRole::kRemovable};
    if (volume.space) device.facts[L"Size"] = std::to_wstring(volume.space->bytes);
    if (volume.encrypted) device.facts[L"Encrypted"] = BoolText(*volume.encrypted);
    volumes.push_back({std::move(volume), std::move(device)});
  }
  return volumes;
}
