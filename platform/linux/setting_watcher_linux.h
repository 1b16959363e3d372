// Watches the files that name the system and its locale.
#pragma once

#include <memory>

#include "platform/linux/sysroot.h"
#include "platform/machine.h"
#include "platform/runtime.h"
#include "platform/setting_watcher.h"

namespace platform {

/// Null when the system refuses to watch. `machine`, which reads below `root`, and `runtime` must outlive the watcher.
std::unique_ptr<SettingWatcher> WatchFactFiles(Machine& machine, const Sysroot& root, Runtime& runtime,
                                               SettingChange on_change);

}  // namespace platform
