// Watches values of the registry.
#pragma once

#include <memory>

#include "platform/setting_watcher.h"

namespace platform::windows {

/// Settings of the user are those of the account at the console, or of the first active remote session.
std::unique_ptr<SettingWatcher> WatchRegistry(SettingChange on_change);

}  // namespace platform::windows
