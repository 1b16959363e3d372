// The user who is logged on at this machine.
#pragma once

#include <string>

#include "platform/windows/owner.h"

namespace platform::windows {

/// The security identifier of the user at the console, or of the first active remote session. Asking for other users
/// needs the system account; without it, the running account counts when its session is such a one.
std::string ReadLoggedInUserSid();

/// The primary token of the user at the console, or of the first active remote session. None: nobody is logged on, or
/// the running account may not ask (the system account may).
UniqueKernelHandle OpenUserToken();

}  // namespace platform::windows
