// The session of this process.
#pragma once

#include <filesystem>
#include <memory>

#include "platform/desktop.h"

namespace platform {

std::unique_ptr<Desktop> OpenLocalDesktop();

/// The folder for what this user's programs keep on this machine, %LOCALAPPDATA%. Empty when the user has none.
std::filesystem::path LocalUserFolder();

}  // namespace platform
