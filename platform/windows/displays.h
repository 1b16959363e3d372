// The displays and the digitizers of the session.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/desktop.h"
#include "platform/windows/sys.h"

namespace platform::windows {

/// See Desktop::ListDisplays.
std::vector<AttachedDisplay> ListDesktopDisplays();

/// The registry key, below HKEY_LOCAL_MACHINE, of a monitor with this device path
/// ("\\?\DISPLAY#DEL4098#5&2b#{e6f0...}"), where the system keeps its EDID; empty when it is no such path.
std::wstring MonitorKey(std::wstring_view device_path);

/// See Desktop::ReadDigitizers and ReadInputKind.
Digitizers ReadSystemDigitizers();
std::optional<DigitizerKind> KindOfInput(HRAWINPUT input);

}  // namespace platform::windows
