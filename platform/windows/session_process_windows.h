// Starting a program with the token of another session's user.
#pragma once

#include <string>

#include "platform/session_process.h"
#include "platform/windows/owner.h"

#include <userenv.h>

namespace platform::windows {

/// The calls of the system that it takes; a test plays another system.
struct UserProcessCalls {
  decltype(&CreateEnvironmentBlock) create_environment = CreateEnvironmentBlock;
  decltype(&DestroyEnvironmentBlock) destroy_environment = DestroyEnvironmentBlock;
  decltype(&CreateProcessAsUserW) create_process = CreateProcessAsUserW;
};

/// Starts a program as the user of `token`, who has this session, on that one's desktop and in that one's environment.
/// Without that environment nothing is started: the process would have the service's, with the system's folders in it.
SessionProcessStart StartAsUser(const UniqueKernelHandle& token, DWORD session, const SessionProgram& program,
                                const UserProcessCalls& calls = {});

/// Gives the account with this security identifier every right to an event that this account made and holds, beside the
/// system, the administrators and itself, who have it, and takes it from everybody else. Returns 0 or the system's
/// error.
DWORD GiveEventTo(const std::string& sid, const std::wstring& event);

}  // namespace platform::windows
