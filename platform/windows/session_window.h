// The hidden window of a program of a user's session.
#pragma once

#include <optional>
#include <string>

#include "platform/desktop.h"
#include "platform/windows/sys.h"

namespace platform::windows {

/// See Desktop::RunWindow.
std::optional<int> RunHiddenWindow(const std::wstring& name, const WindowProcedure& procedure);

/// See Desktop::CloseWindow.
bool CloseHiddenWindow(const std::wstring& name);

/// See Desktop::ForgetWindowClass.
DWORD ForgetHiddenWindowClass(const std::wstring& name);

/// See Desktop::RegisterForDisplays and RegisterForDigitizers.
WindowNoticesResult RegisterDisplayNotices(HWND window);
WindowNoticesResult RegisterDigitizerNotices(HWND window);

}  // namespace platform::windows
