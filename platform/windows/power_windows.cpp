#include "platform/power.h"

#include "platform/windows/doors_windows.h"
#include "platform/windows/sys.h"

namespace platform::windows {
namespace {

class WindowsPower final : public Power {
 public:
  // A short-term source is told by a broadcast alone; here it counts as a battery.
  PowerStatus ReadStatus() override {
    PowerStatus status;
    SYSTEM_POWER_STATUS present{};
    if (!GetSystemPowerStatus(&present)) return status;
    if (present.ACLineStatus == AC_LINE_ONLINE) status.source = PowerSource::kAc;
    if (present.ACLineStatus == AC_LINE_OFFLINE) status.source = PowerSource::kBattery;
    if (present.BatteryLifePercent <= 100) status.percent = present.BatteryLifePercent;
    return status;
  }
};

}  // namespace

std::unique_ptr<Power> MakePower() {
  return std::make_unique<WindowsPower>();
}

}  // namespace platform::windows
