#include "platform/windows/session_process_windows.h"

#include <algorithm>

#include "platform/files.h"
#include "platform/windows/command_line.h"
#include "platform/windows/security.h"
#include "platform/windows/text.h"
#include "platform/windows/user_session.h"

namespace platform {
namespace windows {
namespace {

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

SessionProcessStart Failure(const std::filesystem::path& program, std::string_view call) {
  return {nullptr, false, PathToUtf8(program) + ": " + LastErrorText(call)};
}

SessionProcessStart Success(const PROCESS_INFORMATION& started) {
  CloseHandle(started.hThread);
  return {std::make_unique<WindowsSessionProcess>(started.hProcess), false, {}};
}

SessionProcessStart StartAsChild(const std::filesystem::path& program, const std::vector<std::wstring>& arguments) {
  std::wstring line = CommandLine(program.native(), arguments);
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION started{};
  return CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &started)
             ? Success(started)
             : Failure(program, "CreateProcess");
}

}  // namespace

SessionProcessStart StartAsUser(const UniqueKernelHandle& token, const std::filesystem::path& program,
                                const std::vector<std::wstring>& arguments, const UserProcessCalls& calls) {
  void* block = nullptr;
  if (!calls.create_environment(&block, token.get(), FALSE)) return Failure(program, "CreateEnvironmentBlock");
  const std::unique_ptr<void, decltype(calls.destroy_environment)> environment(block, calls.destroy_environment);
  std::wstring line = CommandLine(program.native(), arguments);
  std::wstring desktop = L"winsta0\\default";  // without one it would have the service's, which nobody sees
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.lpDesktop = desktop.data();
  PROCESS_INFORMATION started{};
  // No handles: they do not go from one session to another.
  return calls.create_process(token.get(), program.c_str(), line.data(), nullptr, nullptr, FALSE,
                              CREATE_UNICODE_ENVIRONMENT, block, nullptr, &startup, &started)
             ? Success(started)
             : Failure(program, "CreateProcessAsUser");
}

}  // namespace windows

SessionProcessStart StartInUserSession(const std::filesystem::path& program,
                                       const std::vector<std::wstring>& arguments) {
  windows::UniqueKernelHandle user;
  if (windows::OpenUserToken(windows::LocalSessions(), user) == ERROR_SUCCESS)
    return windows::StartAsUser(user, program, arguments);
  // Why there is none does not matter: a program for users must not run as the system, in a session without a desktop.
  if (windows::RunsAsSystem()) return {nullptr, true, PathToUtf8(program.filename()) + ": nobody is logged on"};
  return windows::StartAsChild(program, arguments);
}

}  // namespace platform
