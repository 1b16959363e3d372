#include "platform/files.h"
#include "platform/session_process.h"

// The user agent is a window of a Windows session; there is none to start here.
platform::SessionProcessStart platform::StartInUserSession(const std::filesystem::path& program,
                                                           const std::vector<std::wstring>& /*arguments*/) {
  return {.process = nullptr,
          .nobody_logged_on = false,
          .problem = PathToUtf8(program.filename()) + " exists on Windows only"};
}
