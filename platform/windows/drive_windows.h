// One opened drive of Windows, and how the doors ask a drive's driver.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/drives.h"
#include "platform/windows/owner.h"

namespace platform::windows {

/// `access` as CreateFile has it; 0 needs no right and is enough for the codes that say what a drive is. Empty on
/// failure, which GetLastError tells.
UniqueFile OpenDrive(const std::wstring& path, DWORD access);

/// What the driver answered, or GetLastError.
struct DriverAnswer {
  DWORD error = ERROR_SUCCESS;
  std::vector<std::uint8_t> bytes = {};  ///< Empty on failure.
};

/// Waits for the driver, which has its own limit. `size` bytes at most come back.
DriverAnswer AskDriver(HANDLE drive, DWORD code, std::span<const std::uint8_t> request, std::size_t size);

/// `file` was opened with no access, for `listing`'s path. The rights to send commands are asked for with the first
/// one.
std::unique_ptr<Drive> MakeDrive(const DriveListing& listing, UniqueFile file);

}  // namespace platform::windows
