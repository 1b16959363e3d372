// The boundary of a thread: what its code throws ends in the log.
#pragma once

#include <functional>
#include <string>
#include <thread>

#include "client/log/log.h"
#include "platform/runtime.h"

namespace TVK {

/// Calls `call`. An exception that leaves it is logged as "`name`: ended by an exception: " with its text (without it
/// for one that is no std::exception) and goes no further. Any thread.
void CallLogged(const Log& log, const std::string& name, const std::function<void()>& call);

/// Runtime::StartThread, the one way to start a thread: `body` runs by CallLogged. `name` (UTF-8) is also the thread's.
/// Throws std::system_error when the system gives no thread.
std::thread StartGuardedThread(platform::Runtime& runtime, const Log& log, const std::string& name,
                               std::function<void()> body);

}  // namespace TVK
