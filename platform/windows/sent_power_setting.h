// For tests: a power event as the service manager of Windows hands it to a service. Wine's one sends none.
#pragma once

#include "platform/windows/sys.h"

namespace platform::windows {

/// Calls `handler`, which was registered with `context`, on this thread: `setting` is `value` now. What it answers.
inline DWORD SendPowerSetting(LPHANDLER_FUNCTION_EX handler, void* context, const GUID& setting, BYTE value) {
  // POWERBROADCAST_SETTING, whose last member is longer than it is declared.
  struct {
    GUID setting;
    DWORD length = sizeof(DWORD);
    BYTE value[sizeof(DWORD)] = {};
  } event{setting};
  event.value[0] = value;
  return handler(SERVICE_CONTROL_POWEREVENT, PBT_POWERSETTINGCHANGE, &event, context);
}

}  // namespace platform::windows
