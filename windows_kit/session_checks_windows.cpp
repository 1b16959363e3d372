// A user's session: windows, and the console.
#include <array>
#include <atomic>

#include "platform/files.h"
#include "platform/local.h"
#include "platform/local_desktop.h"
#include "platform/window_message.h"
#include "platform/windows/command_line.h"
#include "platform/windows/owner.h"
#include "platform/windows/text.h"
#include "testing/child_process.h"
#include "testing/temp_folder.h"
#include "windows_kit/checks.h"

namespace windows_kit {
namespace {

using platform::windows::LastErrorText;
using platform::windows::UniqueKernelHandle;

constexpr std::chrono::seconds kPatience(20);
constexpr std::chrono::seconds kAtOnce(5);

/// A hidden window as the user agent has it, on a thread of its own, registered for displays or for digitizers.
class HiddenWindow {
 public:
  using Register = platform::WindowNoticesResult (platform::Desktop::*)(void*);

  explicit HiddenWindow(Register notices)
      : thread_(runtime_->StartThread("kit-window", [this, notices] { Run(notices); })) {}
  ~HiddenWindow() {
    desktop_->CloseWindow(kName);
    runtime_->Join(thread_);
    desktop_->ForgetWindowClass(kName);
  }
  HiddenWindow(const HiddenWindow&) = delete;
  HiddenWindow& operator=(const HiddenWindow&) = delete;

  /// What registering was refused, empty when nothing was; "no window" where there is none.
  std::string Problem() {
    runtime_->Wait(*made_, kPatience);
    return problem_;
  }
  bool IsToldTheDisplayState() { return runtime_->Wait(*told_, kAtOnce) == 0; }

 private:
  static constexpr wchar_t kName[] = L"TvkKitWindow";

  void Run(Register notices) {
    platform::WindowNoticesResult registered;
    const auto answer = [&](const platform::WindowMessage& message) -> std::optional<std::intptr_t> {
      if (message.id == platform::kMessageCreate) {
        registered = (desktop_.get()->*notices)(message.window);
        problem_ = registered.problem;
        made_->Set();
      }
      if (message.id == platform::kMessagePowerBroadcast && message.wparam == platform::kPowerSettingChange)
        Look(message);
      if (message.id == platform::kMessageDestroy) {
        registered.notices = nullptr;
        desktop_->QuitWindow();
      }
      return std::nullopt;
    };
    if (desktop_->RunWindow(kName, answer)) return;
    problem_ = "no window";
    made_->Set();
  }

  void Look(const platform::WindowMessage& message) {
    std::array<std::uint8_t, platform::kMessageDataSize> data{};
    const std::size_t size = desktop_->ReadMessageData(message.lparam, data);
    const auto news = platform::DecodeDisplayPower(std::span(data).first(size));
    if (news && std::holds_alternative<platform::DisplayState>(*news)) told_->Set();
  }

  const std::unique_ptr<platform::Runtime> runtime_ = platform::MakeRealRuntime({});
  const std::unique_ptr<platform::Desktop> desktop_ = platform::OpenLocalDesktop();
  const std::unique_ptr<platform::Event> made_ = runtime_->MakeEvent(platform::EventReset::kManual);
  const std::unique_ptr<platform::Event> told_ = runtime_->MakeEvent(platform::EventReset::kManual);
  std::string problem_ = "no window";  ///< The window's thread writes it before it sets made_.
  std::thread thread_;
};

Finding DisplayState() {
  HiddenWindow window(&platform::Desktop::RegisterForDisplays);
  if (const std::string problem = window.Problem(); !problem.empty()) return Judge(false, problem);
  return Judge(window.IsToldTheDisplayState(), "registered; then the state was awaited for 5 s");
}

Finding DigitizersAreRegistered() {
  HiddenWindow window(&platform::Desktop::RegisterForDigitizers);
  const std::string problem = window.Problem();
  return Judge(problem.empty(), problem.empty() ? "registered" : problem);
}

std::atomic<int> heard_by_top_level = 0;
std::atomic<int> heard_by_message_only = 0;
std::atomic<UINT> broadcast_message = 0;

template <std::atomic<int>* kHeard>
LRESULT CALLBACK CountBroadcasts(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  if (message == broadcast_message) ++*kHeard;
  return DefWindowProcW(window, message, wparam, lparam);
}

HWND MakeWindow(const wchar_t* name, WNDPROC procedure, HWND parent) {
  WNDCLASSW description{};
  description.lpfnWndProc = procedure;
  description.hInstance = GetModuleHandleW(nullptr);
  description.lpszClassName = name;
  RegisterClassW(&description);
  return CreateWindowExW(0, name, name, 0, 0, 0, 0, 0, parent, nullptr, description.hInstance, nullptr);
}

// A message of our own, which means nothing to anybody else.
Finding Broadcasts() {
  broadcast_message = RegisterWindowMessageW(L"TvkKitBroadcast");
  const HWND top_level = MakeWindow(L"TvkKitTopLevel", CountBroadcasts<&heard_by_top_level>, nullptr);
  const HWND message_only = MakeWindow(L"TvkKitMessageOnly", CountBroadcasts<&heard_by_message_only>, HWND_MESSAGE);
  if (top_level == nullptr || message_only == nullptr) return CannotTell(LastErrorText("CreateWindow"));
  PostMessageW(HWND_BROADCAST, broadcast_message, 0, 0);
  // Behind the broadcast in this thread's queue.
  PostThreadMessageW(GetCurrentThreadId(), WM_QUIT, 0, 0);
  for (MSG message{}; GetMessageW(&message, nullptr, 0, 0) > 0;)
    DispatchMessageW(&message);
  DestroyWindow(top_level);
  DestroyWindow(message_only);
  return Judge(heard_by_top_level == 1 && heard_by_message_only == 0,
               "heard by the hidden top-level window " + std::to_string(heard_by_top_level) +
                   " times, by the one for messages " + std::to_string(heard_by_message_only) + " times");
}

// Ctrl-C goes to everybody at a console: the service gets one of its own, to which this process then goes.
Finding CtrlC() {
  constexpr char kPolicy[] = R"({"telemetryScope": "none", "datasets": []})";
  const TempFolder temp;
  const std::filesystem::path policy = temp.path() / "policy.json";
  const std::filesystem::path data = temp.path() / "data";
  if (const std::string problem = platform::ReplaceFile(policy, kPolicy); !problem.empty()) return CannotTell(problem);
  const std::filesystem::path program = ProgramBeside("TVKClientService");
  std::wstring line = platform::windows::CommandLine(
      program.native(), {L"--console", L"--for", L"2m", L"--policy", policy.native(), L"--data-dir", data.native()});
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESHOWWINDOW;
  startup.wShowWindow = SW_HIDE;
  PROCESS_INFORMATION started{};
  if (!CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, FALSE, CREATE_NEW_CONSOLE, nullptr, nullptr,
                      &startup, &started)) {
    return CannotTell(LastErrorText("starting the service"));
  }
  const UniqueKernelHandle process(started.hProcess);
  const UniqueKernelHandle thread(started.hThread);
  const bool running = WaitForState(
      [&] {
        const auto log = platform::ReadWholeFile(data / "log" / "EventManager.log", 1 << 20);
        return log && log->find("NotificationProcessorThread Entry") != log->npos;
      },
      kPatience);
  FreeConsole();
  const bool attached = running && AttachConsole(started.dwProcessId);
  const std::string problem = running ? LastErrorText("AttachConsole") : "the service did not come up";
  SetConsoleCtrlHandler(nullptr, TRUE);
  if (attached) GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0);
  constexpr DWORD kPatienceMs = 20'000;
  const bool ended = attached && WaitForSingleObject(process.get(), kPatienceMs) == WAIT_OBJECT_0;
  if (!ended) {
    TerminateProcess(process.get(), 1);
    WaitForSingleObject(process.get(), kPatienceMs);
  }
  if (!attached) return CannotTell(problem);
  DWORD code = 0;
  GetExitCodeProcess(process.get(), &code);
  return Judge(ended && code == 0, ended ? "ended with code " + std::to_string(code) : "it went on for 20 s");
}

constexpr Check kChecks[] = {
    {"ctrl-c", "Ctrl-C ends the service in a console with code 0.", CtrlC},
    {"window-broadcasts", "A hidden top-level window hears broadcasts, one for messages alone does not.", Broadcasts},
    {"display-state", "Who registers for the console's display state is told the present one at once.", DisplayState},
    {"digitizers", "A hidden window may register for pens and touch screens.", DigitizersAreRegistered},
};

}  // namespace

std::span<const Check> SessionChecks() {
  return kChecks;
}

}  // namespace windows_kit
