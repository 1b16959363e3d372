#include "platform/drives.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/drive_descriptor.h"
#include "platform/windows/doors_windows.h"
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

// What `code` answers, as far as the buffer of `size` bytes takes it; empty when it fails. The codes here need no right
// to the drive's content.
std::vector<std::uint8_t> Ask(HANDLE drive, DWORD code, const STORAGE_PROPERTY_QUERY* query, std::size_t size) {
  std::vector<std::uint8_t> answer(size);
  DWORD given = 0;
  const BOOL done =
      DeviceIoControl(drive, code, const_cast<STORAGE_PROPERTY_QUERY*>(query), query == nullptr ? 0 : sizeof(*query),
                      answer.data(), static_cast<DWORD>(answer.size()), &given, nullptr);
  answer.resize(done ? std::min<std::size_t>(given, size) : 0);
  return answer;
}

std::vector<std::uint8_t> AskProperty(HANDLE drive, STORAGE_PROPERTY_ID property, std::size_t size) {
  STORAGE_PROPERTY_QUERY query{};
  query.PropertyId = property;
  query.QueryType = PropertyStandardQuery;
  return Ask(drive, IOCTL_STORAGE_QUERY_PROPERTY, &query, size);
}

template <typename Structure>
std::optional<Structure> As(const std::vector<std::uint8_t>& bytes) {
  if (bytes.size() < sizeof(Structure)) return std::nullopt;
  Structure structure;
  std::copy_n(bytes.begin(), sizeof(structure), reinterpret_cast<std::uint8_t*>(&structure));
  return structure;
}

// Nothing for one that is no drive as Drives means it.
std::optional<DriveListing> Read(HANDLE drive, std::string path) {
  const auto header =
      As<STORAGE_DESCRIPTOR_HEADER>(AskProperty(drive, StorageDeviceProperty, sizeof(STORAGE_DESCRIPTOR_HEADER)));
  constexpr DWORD kMost = 64u << 10;
  const auto descriptor =
      header ? AskProperty(drive, StorageDeviceProperty, std::min(header->Size, kMost)) : std::vector<std::uint8_t>();
  std::optional<DriveListing> listing = DecodeDriveDescriptor(descriptor);
  // A driver that does not say what it is for is listed by its path.
  if (!listing && descriptor.size() >= sizeof(STORAGE_DEVICE_DESCRIPTOR) - 4) return std::nullopt;
  if (!listing) listing.emplace();
  listing->path = std::move(path);
  if (const auto penalty = As<DEVICE_SEEK_PENALTY_DESCRIPTOR>(
          AskProperty(drive, StorageDeviceSeekPenaltyProperty, sizeof(DEVICE_SEEK_PENALTY_DESCRIPTOR)))) {
    listing->rotating = penalty->IncursSeekPenalty != 0;
  }
  if (const auto geometry =
          As<DISK_GEOMETRY_EX>(Ask(drive, IOCTL_DISK_GET_DRIVE_GEOMETRY_EX, nullptr, sizeof(DISK_GEOMETRY_EX)))) {
    listing->bytes = static_cast<std::uint64_t>(std::max<LONGLONG>(geometry->DiskSize.QuadPart, 0));
  }
  return listing;
}

class WindowsDrives final : public Drives {
 public:
  std::vector<DriveListing> List() override {
    std::vector<DriveListing> drives;
    for (const std::wstring& name : DriveNames()) {
      const std::wstring path = L"\\\\.\\" + name;
      const UniqueFile drive(
          CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr));
      if (!drive) continue;  // it may have gone since
      if (auto listing = Read(drive.get(), Utf8FromWide(path))) drives.push_back(std::move(*listing));
    }
    return drives;
  }
};

}  // namespace

std::unique_ptr<Drives> MakeDrives() {
  return std::make_unique<WindowsDrives>();
}

}  // namespace platform::windows
