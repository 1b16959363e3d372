#include "platform/volumes.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>
#include <string>

#include "platform/event_log.h"
#include "platform/windows/doors_windows.h"
#include "platform/windows/file_system_errors.h"
#include "platform/windows/no_error_windows.h"
#include "platform/windows/owner.h"
#include "platform/windows/sys.h"
#include "platform/windows/text.h"

#include <winioctl.h>

namespace platform::windows {
namespace {

struct SearchTraits {
  using Handle = HANDLE;
  static Handle None() { return INVALID_HANDLE_VALUE; }
  static void Close(Handle handle) { FindVolumeClose(handle); }
};
using UniqueVolumeSearch = Owner<SearchTraits>;

// "\\?\Volume{01234567-89ab-cdef-0123-456789abcdef}\", 49 characters; the documented least size is 50.
using VolumeName = std::array<wchar_t, MAX_PATH>;

// Where it is in the tree of files, the first place of several; empty for partitions of recovery and the firmware.
std::wstring FirstPlace(const std::wstring& name) {
  std::wstring places(MAX_PATH, L'\0');
  DWORD length = 0;
  while (!GetVolumePathNamesForVolumeNameW(name.c_str(), places.data(), static_cast<DWORD>(places.size()), &length)) {
    if (GetLastError() != ERROR_MORE_DATA || length <= places.size()) return {};
    places.resize(length);
  }
  return places.c_str();
}

UINT DriveType(const std::wstring& name, const std::wstring& place) {
  const UINT type = GetDriveTypeW(name.c_str());
  return type == DRIVE_UNKNOWN ? GetDriveTypeW(place.c_str()) : type;  // Wine knows places alone
}

std::wstring SystemVolume() {
  VolumeName folder{};
  VolumeName place{};
  VolumeName name{};
  if (GetSystemWindowsDirectoryW(folder.data(), static_cast<UINT>(folder.size())) == 0 ||
      !GetVolumePathNameW(folder.data(), place.data(), static_cast<DWORD>(place.size())) ||
      !GetVolumeNameForVolumeMountPointW(place.data(), name.data(), static_cast<DWORD>(name.size()))) {
    return {};
  }
  return name.data();
}

// A drive behind USB counts as fixed for GetDriveType where its medium cannot be taken out of it.
bool IsBehindUsb(std::wstring name) {
  name.pop_back();  // with the backslash it is the root folder, which needs a right
  const UniqueFile volume(
      CreateFileW(name.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr));
  if (!volume) return false;
  STORAGE_PROPERTY_QUERY query{};
  query.PropertyId = StorageDeviceProperty;
  query.QueryType = PropertyStandardQuery;
  STORAGE_DEVICE_DESCRIPTOR descriptor{};  // the texts behind it are cut off
  DWORD given = 0;
  return DeviceIoControl(volume.get(), IOCTL_STORAGE_QUERY_PROPERTY, &query, sizeof(query), &descriptor,
                         sizeof(descriptor), &given, nullptr) &&
         given == sizeof(descriptor) && descriptor.BusType == BusTypeUsb;
}

std::optional<std::uint64_t> CountErrors(const FileSystemErrors& errors, const std::wstring& name,
                                         const std::wstring& place) {
  const auto without_end = [](const std::wstring& text) { return text.substr(0, text.size() - 1); };
  constexpr std::size_t kPrefix = 4;  // of the name, which QueryDosDeviceW takes without its backslashes
  std::array<wchar_t, MAX_PATH> device{};
  if (QueryDosDeviceW(without_end(name).substr(kPrefix).c_str(), device.data(), static_cast<DWORD>(device.size())) ==
      0) {
    device[0] = L'\0';
  }
  return errors.Of(Utf8FromWide(device.data()),
                   std::array{Utf8FromWide(without_end(name)), Utf8FromWide(without_end(place))});
}

// Nothing for one that is no volume as Volumes means it, or cannot be read now: locked, without a medium.
std::optional<Volume> Read(const std::wstring& name, const std::wstring& system_volume,
                           const FileSystemErrors& errors) {
  const std::wstring place = FirstPlace(name);
  if (place.empty()) return std::nullopt;
  const UINT type = DriveType(name, place);
  if (type != DRIVE_FIXED && type != DRIVE_REMOVABLE) return std::nullopt;
  std::array<wchar_t, MAX_PATH + 1> file_system{};
  DWORD flags = 0;
  if (!GetVolumeInformationW(name.c_str(), nullptr, 0, nullptr, nullptr, &flags, file_system.data(),
                             static_cast<DWORD>(file_system.size()))) {
    return std::nullopt;
  }
  Volume volume{.id = Utf8FromWide(name),
                .file_system = Utf8FromWide(file_system.data()),
                .read_only = (flags & FILE_READ_ONLY_VOLUME) != 0};
  if (volume.file_system == "NTFS") volume.errors = CountErrors(errors, name, place);
  if (name == system_volume) {
    volume.role = VolumeRole::kSystem;
  } else if (type == DRIVE_REMOVABLE || IsBehindUsb(name)) {
    volume.role = VolumeRole::kRemovable;
  }
  ULARGE_INTEGER free{};
  ULARGE_INTEGER total{};
  if (GetDiskFreeSpaceExW(name.c_str(), &free, &total, nullptr) && total.QuadPart != 0) {
    volume.space = VolumeSpace{total.QuadPart, std::min(free.QuadPart, total.QuadPart)};
  }
  return volume;
}

class WindowsVolumes final : public Volumes {
 public:
  std::vector<Volume> List() override {
    const NoErrorWindows no_error_windows;
    const std::wstring system_volume = SystemVolume();
    const FileSystemErrors errors(*log_, std::chrono::milliseconds(GetTickCount64()));
    std::vector<Volume> volumes;
    VolumeName name{};
    const UniqueVolumeSearch search(FindFirstVolumeW(name.data(), static_cast<DWORD>(name.size())));
    if (!search) return volumes;
    do {
      if (auto volume = Read(name.data(), system_volume, errors)) volumes.push_back(std::move(*volume));
    } while (FindNextVolumeW(search.get(), name.data(), static_cast<DWORD>(name.size())));
    return volumes;
  }

 private:
  const std::unique_ptr<EventLog> log_ = MakeEventLog();
};

}  // namespace

std::unique_ptr<Volumes> MakeVolumes() {
  return std::make_unique<WindowsVolumes>();
}

}  // namespace platform::windows
