#include "platform/windows/session_process_windows.h"

#include <algorithm>

#include "platform/files.h"
#include "platform/windows/command_line.h"
#include "platform/windows/kernel_object.h"
#include "platform/windows/process_list.h"
#include "platform/windows/security.h"
#include "platform/windows/text.h"
#include "platform/windows/user_session.h"

namespace platform {
namespace windows {
namespace {

class ProcessEnd final : public Waitable, public KernelObject {
 public:
  explicit ProcessEnd(HANDLE process) : KernelObject(UniqueKernelHandle(process)) {}
};

class WindowsSessionProcess final : public SessionProcess {
 public:
  explicit WindowsSessionProcess(HANDLE process) : end_(process) {}

  Waitable& end() override { return end_; }
  bool HasEnded() override { return WaitForSingleObject(end_.handle(), 0) == WAIT_OBJECT_0; }
  void Kill(std::uint32_t exit_code) override { TerminateProcess(end_.handle(), exit_code); }

 private:
  ProcessEnd end_;
};

SessionProcessStart Failure(const std::filesystem::path& program, std::string_view call) {
  return {nullptr, false, PathToUtf8(program) + ": " + LastErrorText(call)};
}

SessionProcessStart Success(const PROCESS_INFORMATION& started, DWORD session) {
  CloseHandle(started.hThread);
  return {std::make_unique<WindowsSessionProcess>(started.hProcess), false, {}, session};
}

SessionProcessStart StartAsChild(const SessionProgram& program) {
  std::wstring line = CommandLine(program.program.native(), program.arguments);
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION started{};
  return CreateProcessW(program.program.c_str(), line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &started)
             ? Success(started, LocalSessions().Own())
             : Failure(program.program, "CreateProcess");
}

class LocalUserSessions final : public UserSessions {
 public:
  std::optional<std::uint32_t> Find(const std::set<std::uint32_t>& ended) override {
    UniqueKernelHandle user;
    DWORD session = kNoSession;
    if (OpenUserToken(LocalSessions(), user, &session, {ended.begin(), ended.end()}) == ERROR_SUCCESS) return session;
    if (RunsAsSystem()) return std::nullopt;
    return LocalSessions().Own();
  }

  bool ServiceRunsElsewhere(std::wstring_view program) override {
    const std::string account = ProcessUserSid();
    // The system may ask everybody but who took that right from it, which no service does. An ordinary account may not
    // ask the system, whose service goes before its own.
    const bool denied_may_be = !RunsAsSystem();
    return std::ranges::any_of(ProcessesOf(program), [&](std::uint32_t process) {
      return process != GetCurrentProcessId() && MayBeService(OwnerOfProcess(process), account, denied_may_be);
    });
  }

  SessionProcessStart Start(const SessionProgram& program, const std::set<std::uint32_t>& ended) override {
    UniqueKernelHandle user;
    DWORD session = kNoSession;
    if (OpenUserToken(LocalSessions(), user, &session, {ended.begin(), ended.end()}) == ERROR_SUCCESS) {
      return StartAsUser(user, session, program);
    }
    // Why there is none does not matter: a program for users must not run as the system, in a session without a
    // desktop.
    if (RunsAsSystem()) return {nullptr, true, PathToUtf8(program.program.filename()) + ": nobody is logged on"};
    return StartAsChild(program);
  }
};

}  // namespace

DWORD GiveEventTo(const std::string& sid, const std::wstring& event) {
  const UniqueKernelHandle opened(OpenEventW(WRITE_DAC, FALSE, event.c_str()));
  if (!opened) return GetLastError();
  std::string list = "D:P";
  for (const std::string& holder : {std::string("SY"), std::string("BA"), ProcessUserSid(), sid}) {
    if (!holder.empty()) list += "(A;;0x1f0003;;;" + holder + ")";  // EVENT_ALL_ACCESS
  }
  SecurityAttributes security(list);
  if (!security.ok()) return GetLastError();
  return SetKernelObjectSecurity(opened.get(), DACL_SECURITY_INFORMATION, security.get()->lpSecurityDescriptor)
             ? ERROR_SUCCESS
             : GetLastError();
}

SessionProcessStart StartAsUser(const UniqueKernelHandle& token, DWORD session, const SessionProgram& program,
                                const UserProcessCalls& calls) {
  if (!program.event.empty()) {
    if (const DWORD error = GiveEventTo(UserSid(token.get()), program.event); error != ERROR_SUCCESS) {
      SetLastError(error);
      return Failure(program.program, "SetKernelObjectSecurity");
    }
  }
  void* block = nullptr;
  if (!calls.create_environment(&block, token.get(), FALSE)) return Failure(program.program, "CreateEnvironmentBlock");
  const std::unique_ptr<void, decltype(calls.destroy_environment)> environment(block, calls.destroy_environment);
  std::wstring line = CommandLine(program.program.native(), program.arguments);
  std::wstring desktop = L"winsta0\\default";  // without one it would have the service's, which nobody sees
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.lpDesktop = desktop.data();
  PROCESS_INFORMATION started{};
  // No handles: they do not go from one session to another.
  return calls.create_process(token.get(), program.program.c_str(), line.data(), nullptr, nullptr, FALSE,
                              CREATE_UNICODE_ENVIRONMENT, block, nullptr, &startup, &started)
             ? Success(started, session)
             : Failure(program.program, "CreateProcessAsUser");
}

}  // namespace windows

std::unique_ptr<UserSessions> OpenLocalUserSessions() {
  return std::make_unique<windows::LocalUserSessions>();
}

}  // namespace platform
