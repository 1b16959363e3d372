// The power manager's library, which its maker installs.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/power_manager.h"
#include "platform/windows/sys.h"

namespace platform::windows {

/// Where the library may lie, in the order in which it is looked for: in the folder that the power manager's entry in
/// the registry names, where there is one (`registered`), and then in those of `program_folders`.
std::vector<std::filesystem::path> PowerManagerLibraryPlaces(std::wstring_view registered,
                                                             const std::vector<std::filesystem::path>& program_folders);

/// The library, once it is found: it is loaded with the first question and stays, since it may have threads. It runs in
/// this process with all of its rights: a fault in it is a fault of the process, so nothing is loaded from where
/// anybody but administrators could have put it (FindTrustedFile). Any thread; one call of it at a time.
class PowerManagerLibrary {
 public:
  std::optional<SmartBatteryAnswer> ReadSmartBattery(std::uint32_t battery);
  std::optional<std::array<std::uint16_t, 4>> ReadFirmwareVersion(std::uint32_t battery);

 private:
  using StatusCall = std::uint32_t(WINAPI*)(std::uint32_t battery, void* status, void* information);
  using FirmwareCall = std::uint32_t(WINAPI*)(std::uint32_t battery, void* words);

  /// Needs the mutex. False: there is none, or none that may be used.
  bool Load();

  std::mutex mutex_;  ///< Guards what follows and the calls of the library.
  HMODULE library_ = nullptr;
  StatusCall read_status_ = nullptr;
  FirmwareCall read_firmware_ = nullptr;
  bool damaging_ = false;  ///< It wrote where it must not, and is not used again.
};

}  // namespace platform::windows
