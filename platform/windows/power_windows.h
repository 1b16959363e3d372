// The power of Windows, before the calls of the system.
#pragma once

#include <memory>

#include "platform/power.h"
#include "platform/windows/sys.h"

// In powrprof, from Windows 7 on; mingw's headers lack them.
extern "C" DWORD WINAPI PowerSettingRegisterNotification(const GUID* setting, DWORD flags, HANDLE recipient,
                                                         void** registration);
extern "C" DWORD WINAPI PowerSettingUnregisterNotification(void* registration);

namespace platform::windows {

/// A short-term source is told by a notice alone; here it counts as a battery.
PowerStatus PowerStatusOf(const SYSTEM_POWER_STATUS& present);

/// The calls of the system that a registration takes; a test plays another system.
struct PowerNoticeCalls {
  decltype(&PowerSettingRegisterNotification) register_setting = PowerSettingRegisterNotification;
  decltype(&PowerSettingUnregisterNotification) unregister_setting = PowerSettingUnregisterNotification;
  decltype(&RegisterPowerSettingNotification) register_window_setting = RegisterPowerSettingNotification;
  decltype(&UnregisterPowerSettingNotification) unregister_window_setting = UnregisterPowerSettingNotification;
};

/// Power::Register. The pages of the two calls disagree on the handle that a service has to give, while only the status
/// handle belongs to the control handler: where the first call does not take it, the older one does.
std::shared_ptr<CHPowerNotifyHandle> RegisterPowerNotices(PowerSetting setting, SERVICE_STATUS_HANDLE service,
                                                          const PowerNoticeCalls& calls = {});

}  // namespace platform::windows
