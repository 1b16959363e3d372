// The boundary at which an exception becomes a line of a log: of a thread, or of a call into code that may throw.
#pragma once

#include <functional>
#include <string>
#include <thread>

#include "client/log/log.h"
#include "platform/runtime.h"

namespace TVK {

/// Calls `call`; false when it threw. That is then logged as "`name` failed: " with the exception's text ("unknown
/// exception" for one that is no std::exception) and goes no further. Any thread.
bool CallLogged(const Log& log, const std::wstring& name, const std::function<void()>& call);

/// Runtime::StartThread, the one way to start a thread: `body` runs by CallLogged. `name` (UTF-8) is also the thread's.
/// Throws std::system_error when the system gives no thread.
std::thread StartGuardedThread(platform::Runtime& runtime, const Log& log, const std::string& name,
                               std::function<void()> body);

}  // namespace TVK
