// Starting a program with the token of another session's user.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

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

/// Starts `program` (an absolute path) as the user of `token`, on that one's desktop and in that one's environment.
/// Without that environment nothing is started: the process would have the service's, with the system's folders in it.
SessionProcessStart StartAsUser(const UniqueKernelHandle& token, const std::filesystem::path& program,
                                const std::vector<std::wstring>& arguments, const UserProcessCalls& calls = {});

}  // namespace platform::windows
