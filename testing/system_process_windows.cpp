#include "testing/child_process.h"

#include <cstdio>
#include <stdexcept>
#include <system_error>

#include "platform/windows/command_line.h"
#include "platform/windows/owner.h"
#include "platform/windows/text.h"

namespace {

using platform::windows::UniqueFile;
using platform::windows::UniqueKernelHandle;

void Check(bool succeeded, const char* what) {
  if (!succeeded) throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), what);
}

class WindowsProcess final : public SystemProcess {
 public:
  WindowsProcess(UniqueKernelHandle job, UniqueKernelHandle process, UniqueFile output)
      : job_(std::move(job)), process_(std::move(process)), output_(std::move(output)) {}

  std::size_t Read(std::span<char> buffer) override {
    DWORD size = 0;
    return ReadFile(output_.get(), buffer.data(), static_cast<DWORD>(buffer.size()), &size, nullptr) ? size : 0;
  }

  int Wait() override {
    WaitForSingleObject(process_.get(), INFINITE);
    DWORD code = 0;
    GetExitCodeProcess(process_.get(), &code);
    return static_cast<int>(code);
  }

  void Ask(ChildRequest request) override {
    if (request != ChildRequest::kKill) throw std::logic_error("there are no signals on Windows");
    constexpr UINT kExitCode = 137;  // as a killed process has it elsewhere
    TerminateProcess(process_.get(), kExitCode);
  }

 private:
  const UniqueKernelHandle job_;  ///< Its closing, also by the death of the test, ends what is left of the child.
  const UniqueKernelHandle process_;
  const UniqueFile output_;
};

UniqueKernelHandle MakeJob() {
  UniqueKernelHandle job(CreateJobObjectW(nullptr, nullptr));
  Check(static_cast<bool>(job), "CreateJobObject");
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  Check(SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits),
        "SetInformationJobObject");
  return job;
}

}  // namespace

std::unique_ptr<SystemProcess> SystemProcess::Start(const std::filesystem::path& program,
                                                    const std::vector<std::string>& arguments) {
  // Wine starts the desktop's own process with the first who asks for it, and with that one's handles: started by the
  // child, or by a program that the child starts, it would keep the child's output open for good, and whoever waits for
  // its end waiting.
  GetDesktopWindow();
  UniqueKernelHandle job = MakeJob();
  SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  HANDLE ends[2];
  Check(CreatePipe(&ends[0], &ends[1], &inherited, 0), "CreatePipe");
  UniqueFile output(ends[0]);
  const UniqueFile input(ends[1]);
  Check(SetHandleInformation(output.get(), HANDLE_FLAG_INHERIT, 0), "SetHandleInformation");

  std::vector<std::wstring> texts;
  for (const std::string& argument : arguments)
    texts.push_back(platform::windows::WideFromUtf8(argument));
  std::wstring command = platform::windows::CommandLine(program.native(), texts);
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = input.get();
  startup.hStdError = input.get();
  PROCESS_INFORMATION started{};
  const auto create = [&] {
    return CreateProcessW(program.c_str(), command.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr, nullptr,
                          &startup, &started);
  };
  BOOL created = create();
  if (!created && GetLastError() == ERROR_INTERNAL_ERROR) {
    // Wine ends one process of some ten thousand before its first instruction; see scripts/wine-run.
    static_cast<void>(std::fputs("CreateProcess: Wine ended it before it began; it is started again\n", stderr));
    created = create();
  }
  Check(created != FALSE, "CreateProcess");
  UniqueKernelHandle process(started.hProcess);
  const UniqueKernelHandle thread(started.hThread);
  Check(AssignProcessToJobObject(job.get(), process.get()), "AssignProcessToJobObject");
  ResumeThread(thread.get());
  return std::make_unique<WindowsProcess>(std::move(job), std::move(process), std::move(output));
}

std::filesystem::path ProgramBeside(const std::string& name) {
  wchar_t path[32768];
  const DWORD length = GetModuleFileNameW(nullptr, path, static_cast<DWORD>(std::size(path)));
  Check(length > 0 && length < std::size(path), "GetModuleFileName");
  return std::filesystem::path(std::wstring(path, length)).parent_path() /
         platform::windows::WideFromUtf8(name + ".exe");
}
