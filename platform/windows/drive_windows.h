// One opened drive of Windows.
#pragma once

#include <memory>
#include <string>

#include "platform/drives.h"
#include "platform/windows/owner.h"

namespace platform::windows {

/// `access` as CreateFile has it; 0 needs no right and is enough for the codes that say what a drive is. Empty on
/// failure, which GetLastError tells.
UniqueFile OpenDrive(const std::wstring& path, DWORD access);

/// `file` was opened with no access, for `listing`'s path. The rights to send commands are asked for with the first
/// one.
std::unique_ptr<Drive> MakeDrive(const DriveListing& listing, UniqueFile file);

}  // namespace platform::windows
