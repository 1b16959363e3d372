#include "platform/session_process.h"

#include "platform/files.h"
#include "platform/windows/command_line.h"
#include "platform/windows/owner.h"
#include "platform/windows/security.h"
#include "platform/windows/text.h"
#include "platform/windows/user_session.h"

#include <userenv.h>

#include <algorithm>

namespace platform {
namespace {

using namespace windows;  // NOLINT(google-build-using-namespace): this system's helpers

struct EnvironmentTraits {
  using Handle = void*;
  static Handle None() { return nullptr; }
  static void Close(Handle block) { DestroyEnvironmentBlock(block); }
};

class WindowsSessionProcess final : public SessionProcess {
 public:
  explicit WindowsSessionProcess(HANDLE process) : process_(process) {}

  bool WaitForEnd(milliseconds timeout) override {
    const auto limit = static_cast<DWORD>(std::clamp<std::int64_t>(timeout.count(), 0, INFINITE - 1));
    return WaitForSingleObject(process_.get(), limit) == WAIT_OBJECT_0;
  }
  void Kill(std::uint32_t exit_code) override { TerminateProcess(process_.get(), exit_code); }

 private:
  UniqueKernelHandle process_;
};

}  // namespace

SessionProcessStart StartInUserSession(const std::filesystem::path& program,
                                       const std::vector<std::wstring>& arguments) {
  SessionProcessStart start;
  const UniqueKernelHandle user = OpenUserToken();
  // Why there is none does not matter: a program for users must not run as the system, in a session without a desktop.
  if (!user && RunsAsSystem()) {
    start.nobody_logged_on = true;
    start.problem = PathToUtf8(program.filename()) + ": nobody is logged on";
    return start;
  }
  std::wstring line = CommandLine(program.native(), arguments);
  std::wstring desktop = L"winsta0\\default";
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION started{};
  BOOL ok = FALSE;
  if (user) {
    startup.lpDesktop = desktop.data();
    Owner<EnvironmentTraits> environment;
    CreateEnvironmentBlock(environment.Receive(), user.get(), FALSE);
    ok = CreateProcessAsUserW(user.get(), program.c_str(), line.data(), nullptr, nullptr, FALSE,
                              CREATE_UNICODE_ENVIRONMENT, environment.get(), nullptr, &startup, &started);
  } else {
    ok = CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &started);
  }
  if (!ok) {
    start.problem = PathToUtf8(program) + ": " + LastErrorText("CreateProcess");
    return start;
  }
  CloseHandle(started.hThread);
  start.process = std::make_unique<WindowsSessionProcess>(started.hProcess);
  return start;
}

}  // namespace platform
