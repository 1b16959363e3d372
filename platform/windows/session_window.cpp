#include "platform/windows/session_window.h"

#include <dbt.h>

#include <array>
#include <vector>

#include "platform/windows/owner.h"
#include "platform/windows/text.h"

namespace platform::windows {
namespace {

struct PowerNoticesTraits : NullHandle<HPOWERNOTIFY, UnregisterPowerSettingNotification> {};
using UniquePowerNotices = Owner<PowerNoticesTraits>;

// Of powrprof's newer headers and of ntddvdeo.h, which are not everywhere.
constexpr GUID kConsoleDisplayState = {0x6FE69556, 0x704A, 0x47A0, {0x8F, 0x24, 0xC2, 0x8D, 0x93, 0x6F, 0xDA, 0x47}};
constexpr GUID kMonitorBrightness = {0x8FFEE2C6, 0x2D01, 0x46BE, {0xAD, 0xB9, 0x39, 0x8A, 0xDD, 0xC5, 0xB4, 0xFF}};
constexpr GUID kMonitorInterface = {0xE6F07B5F, 0xEE97, 0x4A90, {0xB0, 0x76, 0x33, 0xF5, 0x7B, 0xF4, 0xEA, 0xA7}};

constexpr USHORT kDigitizerPage = 0x0D;
constexpr std::array<USHORT, 2> kDigitizerUsages = {0x02, 0x04};  // pen, touch screen

// The library's or the program's, whichever this is part of.
HINSTANCE ThisModule() {
  HMODULE module = nullptr;
  constexpr DWORD kByAddress = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  GetModuleHandleExW(kByAddress, reinterpret_cast<const wchar_t*>(&kDigitizerUsages), &module);
  return module;
}

// Of this thread's window, while its loop runs. It stands neither in the window nor in a message: any process of the
// session can write to both.
thread_local const WindowProcedure* procedure_of_thread = nullptr;

LRESULT CALLBACK Answer(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  // Somebody showed the window: what is never painted would be asked for without end.
  if (message == WM_PAINT) ValidateRect(window, nullptr);
  if (procedure_of_thread != nullptr) {
    if (const auto result = (*procedure_of_thread)({window, message, wparam, lparam})) return *result;
  }
  return DefWindowProcW(window, message, wparam, lparam);
}

/// Everything that one wish registered.
class Notices final : public WindowNotices {
 public:
  ~Notices() override {
    if (!raw_input_) return;
    std::array<RAWINPUTDEVICE, kDigitizerUsages.size()> devices{};
    for (std::size_t i = 0; i < devices.size(); ++i)
      devices[i] = {kDigitizerPage, kDigitizerUsages[i], RIDEV_REMOVE, nullptr};
    RegisterRawInputDevices(devices.data(), static_cast<UINT>(devices.size()), sizeof devices[0]);
  }

  void TakePower(HWND window, const GUID& setting, std::string& problem) {
    UniquePowerNotices notices(RegisterPowerSettingNotification(window, &setting, DEVICE_NOTIFY_WINDOW_HANDLE));
    if (!notices) Refused("RegisterPowerSettingNotification", problem);
    power_.push_back(std::move(notices));
  }

  // `interface_class` null: every class.
  void TakeDevices(HWND window, const GUID* interface_class, std::string& problem) {
    DEV_BROADCAST_DEVICEINTERFACE_W filter{};
    filter.dbcc_size = sizeof filter;
    filter.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    DWORD flags = DEVICE_NOTIFY_WINDOW_HANDLE;
    if (interface_class != nullptr) {
      filter.dbcc_classguid = *interface_class;
    } else {
      flags |= DEVICE_NOTIFY_ALL_INTERFACE_CLASSES;
    }
    devices_.Reset(RegisterDeviceNotificationW(window, &filter, flags));
    if (!devices_) Refused("RegisterDeviceNotification", problem);
  }

  void TakeRawInput(HWND window, std::string& problem) {
    std::array<RAWINPUTDEVICE, kDigitizerUsages.size()> devices{};
    for (std::size_t i = 0; i < devices.size(); ++i)
      devices[i] = {kDigitizerPage, kDigitizerUsages[i], RIDEV_INPUTSINK, window};
    raw_input_ = RegisterRawInputDevices(devices.data(), static_cast<UINT>(devices.size()), sizeof devices[0]) != FALSE;
    if (!raw_input_) Refused("RegisterRawInputDevices", problem);
  }

 private:
  static void Refused(std::string_view call, std::string& problem) {
    problem += (problem.empty() ? "" : "; ") + LastErrorText(call);
  }

  std::vector<UniquePowerNotices> power_;
  UniqueDeviceNotices devices_;
  bool raw_input_ = false;
};

}  // namespace

std::optional<int> RunHiddenWindow(const std::wstring& name, const WindowProcedure& procedure) {
  const HINSTANCE module = ThisModule();
  WNDCLASSEXW description{};
  description.cbSize = sizeof description;
  description.style = CS_HREDRAW | CS_VREDRAW;
  description.lpfnWndProc = Answer;
  description.hInstance = module;
  description.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  description.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_WINDOW + 1);
  description.lpszClassName = name.c_str();
  RegisterClassExW(&description);  // without it there is no window either
  procedure_of_thread = &procedure;
  // To a window that knows of no scaling WM_DISPLAYCHANGE tells scaled pixels, while the displays' modes are of true
  // ones: where the screen is scaled a change to what it is already would be seen.
  SetThreadDpiAwarenessContext(DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE);
  // Top-level: one for messages alone would hear of no display and of no medium.
  const HWND window = CreateWindowExW(0, name.c_str(), name.c_str(), WS_OVERLAPPEDWINDOW, CW_USEDEFAULT, 0,
                                      CW_USEDEFAULT, 0, nullptr, nullptr, module, nullptr);
  if (window == nullptr) {
    procedure_of_thread = nullptr;
    return std::nullopt;
  }
  ShowWindow(window, SW_HIDE);
  UpdateWindow(window);
  const HACCEL keys = LoadAcceleratorsW(module, name.c_str());
  MSG message{};
  while (GetMessageW(&message, nullptr, 0, 0) > 0) {
    if (TranslateAcceleratorW(window, keys, &message)) continue;
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
  procedure_of_thread = nullptr;
  // The loop may have been ended by a message that anybody can post.
  if (IsWindow(window)) DestroyWindow(window);
  return static_cast<int>(message.wParam);
}

bool CloseHiddenWindow(const std::wstring& name) {
  constexpr UINT kPatienceMs = 5000;
  // By its class, which nobody else can change, and of this process: others may have windows of any name.
  for (HWND window = nullptr; (window = FindWindowExW(nullptr, window, name.c_str(), nullptr)) != nullptr;) {
    DWORD process = 0;
    GetWindowThreadProcessId(window, &process);
    if (process != GetCurrentProcessId()) continue;
    DWORD_PTR result = 0;
    return SendMessageTimeoutW(window, WM_SYSCOMMAND, SC_CLOSE, 0, SMTO_NORMAL, kPatienceMs, &result) != 0;
  }
  return false;
}

DWORD ForgetHiddenWindowClass(const std::wstring& name) {
  return UnregisterClassW(name.c_str(), ThisModule()) ? ERROR_SUCCESS : GetLastError();
}

WindowNoticesResult RegisterDisplayNotices(HWND window) {
  auto notices = std::make_unique<Notices>();
  std::string problem;
  notices->TakePower(window, kConsoleDisplayState, problem);
  notices->TakePower(window, kMonitorBrightness, problem);
  notices->TakeDevices(window, &kMonitorInterface, problem);
  return {std::move(notices), problem};
}

WindowNoticesResult RegisterDigitizerNotices(HWND window) {
  auto notices = std::make_unique<Notices>();
  std::string problem;
  notices->TakeRawInput(window, problem);
  notices->TakeDevices(window, nullptr, problem);
  return {std::move(notices), problem};
}

}  // namespace platform::windows
