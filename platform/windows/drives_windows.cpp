#include "platform/drives.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/drive_descriptor.h"
#include "platform/hanging_asks.h"
#include "platform/storage_query.h"
#include "platform/windows/doors_windows.h"
#include "platform/windows/drive_windows.h"
#include "platform/windows/driver_request.h"
#include "platform/windows/owner.h"
#include "platform/windows/sys.h"
#include "platform/windows/text.h"

#include <winioctl.h>

namespace platform::windows {
namespace {

constexpr std::wstring_view kDriveName = L"PhysicalDrive";

// The names "PhysicalDriveN" that the system knows at present; their numbers have gaps.
std::vector<std::wstring> DriveNames() {
  std::vector<wchar_t> names(16u << 10);
  DWORD length = 0;
  // All names of devices, one behind the other: on machines with much software tens of thousands of characters.
  while ((length = QueryDosDeviceW(nullptr, names.data(), static_cast<DWORD>(names.size()))) == 0) {
    if (GetLastError() != ERROR_INSUFFICIENT_BUFFER || names.size() > (16u << 20)) return {};
    names.resize(names.size() * 2);
  }
  std::vector<std::wstring> drives;
  for (std::wstring_view rest(names.data(), length); !rest.empty();) {
    const std::wstring_view name = rest.substr(0, rest.find(L'\0'));
    rest.remove_prefix(std::min(rest.size(), name.size() + 1));
    const bool counted =
        name.starts_with(kDriveName) && name.size() > kDriveName.size() &&
        std::ranges::all_of(name.substr(kDriveName.size()), [](wchar_t c) { return c >= '0' && c <= '9'; });
    if (counted) drives.emplace_back(name);
  }
  std::ranges::sort(drives, {}, [](const std::wstring& name) { return std::pair(name.size(), name); });
  return drives;
}

std::vector<std::uint8_t> AskProperty(HANDLE drive, STORAGE_PROPERTY_ID property, std::size_t size) {
  STORAGE_PROPERTY_QUERY query{};
  query.PropertyId = property;
  query.QueryType = PropertyStandardQuery;
  return AskDriver(drive, IOCTL_STORAGE_QUERY_PROPERTY,
                   std::span(reinterpret_cast<const std::uint8_t*>(&query), sizeof(query)), size)
      .bytes;
}

template <typename Structure>
std::optional<Structure> As(const std::vector<std::uint8_t>& bytes) {
  if (bytes.size() < sizeof(Structure)) return std::nullopt;
  Structure structure;
  std::copy_n(bytes.begin(), sizeof(structure), reinterpret_cast<std::uint8_t*>(&structure));
  return structure;
}

// What the drive says it is. Nothing when it says that it is no drive as Drives means it.
std::optional<DriveListing> Describe(HANDLE drive) {
  const auto header =
      As<STORAGE_DESCRIPTOR_HEADER>(AskProperty(drive, StorageDeviceProperty, sizeof(STORAGE_DESCRIPTOR_HEADER)));
  constexpr DWORD kMost = 64u << 10;
  const auto descriptor =
      header ? AskProperty(drive, StorageDeviceProperty, std::min(header->Size, kMost)) : std::vector<std::uint8_t>();
  std::optional<DriveListing> listing = DecodeDriveDescriptor(descriptor);
  // A driver that does not say what it is for is listed by its path.
  if (!listing && descriptor.size() >= sizeof(STORAGE_DEVICE_DESCRIPTOR) - 4) return std::nullopt;
  if (!listing) listing.emplace();
  if (listing->bus == DriveBus::kOther) {
    listing->bus = DecodeAdapterBus(AskProperty(drive, StorageAdapterProperty, sizeof(STORAGE_ADAPTER_DESCRIPTOR)));
  }
  return listing;
}

std::optional<DriveListing> Read(HANDLE drive, std::string path) {
  std::optional<DriveListing> listing = Describe(drive);
  if (!listing) return std::nullopt;
  listing->path = std::move(path);
  if (const auto penalty = As<DEVICE_SEEK_PENALTY_DESCRIPTOR>(
          AskProperty(drive, StorageDeviceSeekPenaltyProperty, sizeof(DEVICE_SEEK_PENALTY_DESCRIPTOR)))) {
    listing->rotating = penalty->IncursSeekPenalty != 0;
  }
  if (const auto geometry = As<DISK_GEOMETRY_EX>(
          AskDriver(drive, IOCTL_DISK_GET_DRIVE_GEOMETRY_EX, {}, sizeof(DISK_GEOMETRY_EX)).bytes)) {
    listing->bytes = static_cast<std::uint64_t>(std::max<LONGLONG>(geometry->DiskSize.QuadPart, 0));
  }
  return listing;
}

class WindowsDrives final : public Drives {
 public:
  std::vector<DriveListing> List() override {
    std::vector<std::string> paths;
    for (const std::wstring& name : DriveNames())
      paths.push_back(Utf8FromWide(L"\\\\.\\" + name));
    const std::lock_guard lock(mutex_);
    std::map<std::string, DriveListing> known;
    std::vector<DriveListing> drives;
    for (auto& [path, listing, hangs] : asks_.AskEach<DriveListing>(paths, ListOne)) {
      // One that hangs is what it was, or a path alone.
      if (hangs) listing = known_.contains(path) ? known_.at(path) : DriveListing{.path = path};
      if (!listing) continue;
      known.emplace(path, *listing);
      drives.push_back(std::move(*listing));
    }
    known_ = std::move(known);
    return drives;
  }

  DriveOpening Open(const DriveListing& drive) override {
    UniqueFile file = OpenDrive(WideFromUtf8(drive.path), 0);
    if (!file) {
      const DriveAnswer why = WindowsDriveFailure(GetLastError());
      return {nullptr, why.result, why.error};
    }
    // A drive that came later gets the number of one that has gone.
    const auto now = Describe(file.get());
    const bool same =
        now && now->bus == drive.bus && now->model == drive.model && now->serial_number == drive.serial_number;
    if (!same) return {nullptr, DriveResult::kGone, ERROR_FILE_NOT_FOUND};
    return {MakeDrive(drive, std::move(file))};
  }

 private:
  /// A driver answers at once, from what it knows.
  static constexpr std::chrono::seconds kLimit{5};

  // Nothing of one that has gone since.
  static std::optional<DriveListing> ListOne(const std::string& path) {
    const UniqueFile drive = OpenDrive(WideFromUtf8(path), 0);
    return drive ? Read(drive.get(), path) : std::nullopt;
  }

  std::mutex mutex_;  ///< Guards what follows; held while the drives are listed.
  HangingAsks asks_{kLimit};
  std::map<std::string, DriveListing> known_;  ///< Those of the last list, by their paths.
};

}  // namespace

std::unique_ptr<Drives> MakeDrives() {
  return std::make_unique<WindowsDrives>();
}

}  // namespace platform::windows
