#include "platform/power_manager.h"

#include "platform/windows/doors_windows.h"

namespace platform::windows {

std::unique_ptr<PowerManager> MakePowerManager() {
  return std::make_unique<NoPowerManager>();
}

}  // namespace platform::windows
