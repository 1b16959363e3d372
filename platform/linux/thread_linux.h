// Threads with a name.
#pragma once

#include <functional>
#include <string_view>
#include <thread>

namespace platform {

/// Starts a thread that runs `body` and that `top -H` and debuggers show as `name` (15 characters are kept). Throws
/// std::system_error when the system gives none.
std::thread StartNamedThread(std::string_view name, std::function<void()> body);

}  // namespace platform
