// Linked into the service's own program: its handler is called as the service manager of Windows does, since Wine's one
// sends no power events. A test asks for that by events.
#include "tests/e2e/battery_service_control_windows.h"

#include <thread>

#include "platform/windows/owner.h"
#include "platform/windows/sent_power_setting.h"

namespace {

using platform::windows::SendPowerSetting;
using platform::windows::UniqueKernelHandle;

// Until the process ends.
void CallAsAsked(LPHANDLER_FUNCTION_EX handler, void* context) {
  const UniqueKernelHandle unplugged(CreateEventW(nullptr, FALSE, FALSE, kUnpluggedEvent));
  const UniqueKernelHandle percentage(CreateEventW(nullptr, FALSE, FALSE, kPercentageEvent));
  const HANDLE asked[] = {unplugged.get(), percentage.get()};
  for (;;) {
    switch (WaitForMultipleObjects(2, asked, FALSE, INFINITE)) {
      case WAIT_OBJECT_0:
        SendPowerSetting(handler, context, GUID_ACDC_POWER_SOURCE, 1);
        break;
      case WAIT_OBJECT_0 + 1:
        SendPowerSetting(handler, context, GUID_BATTERY_PERCENTAGE_REMAINING, 4);
        break;
      default:
        return;
    }
  }
}

SERVICE_STATUS_HANDLE WINAPI RegisterAndCall(const wchar_t* name, LPHANDLER_FUNCTION_EX handler, void* context) {
  std::thread(CallAsAsked, handler, context).detach();
  const FARPROC call = GetProcAddress(GetModuleHandleW(L"advapi32.dll"), "RegisterServiceCtrlHandlerExW");
  return reinterpret_cast<decltype(&RegisterServiceCtrlHandlerExW)>(reinterpret_cast<void*>(call))(name, handler,
                                                                                                   context);
}

}  // namespace

// In the place of the import.
extern "C" {
// NOLINTNEXTLINE(*-reserved-identifier,cert-dcl*)
decltype(&RegisterServiceCtrlHandlerExW) __imp_RegisterServiceCtrlHandlerExW = &RegisterAndCall;
}
