#include "platform/windows/power_windows.h"

#include <functional>
#include <utility>

#include "platform/windows/doors_windows.h"

namespace platform::windows {
namespace {

class Registration final : public CHPowerNotifyHandle {
 public:
  explicit Registration(std::function<void()> end) : end_(std::move(end)) {}
  ~Registration() override { end_(); }

 private:
  const std::function<void()> end_;
};

const GUID& GuidOf(PowerSetting setting) {
  return setting == PowerSetting::kPowerSource ? GUID_ACDC_POWER_SOURCE : GUID_BATTERY_PERCENTAGE_REMAINING;
}

class WindowsPower final : public Power {
 public:
  PowerStatus ReadStatus() override {
    SYSTEM_POWER_STATUS present{};
    return GetSystemPowerStatus(&present) ? PowerStatusOf(present) : PowerStatus();
  }

  std::shared_ptr<CHPowerNotifyHandle> Register(PowerSetting setting, void* service) override {
    return RegisterPowerNotices(setting, static_cast<SERVICE_STATUS_HANDLE>(service));
  }
};

}  // namespace

PowerStatus PowerStatusOf(const SYSTEM_POWER_STATUS& present) {
  PowerStatus status;
  if (present.ACLineStatus == AC_LINE_ONLINE) status.source = PowerSource::kAc;
  if (present.ACLineStatus == AC_LINE_OFFLINE) status.source = PowerSource::kBattery;
  // "Unknown" has all bits, "no battery" among them.
  if (present.BatteryFlag != BATTERY_FLAG_UNKNOWN) {
    status.has_battery = (present.BatteryFlag & BATTERY_FLAG_NO_BATTERY) == 0;
    if (!*status.has_battery) return status;
    status.charging = (present.BatteryFlag & BATTERY_FLAG_CHARGING) != 0;
    // Two levels at once are none.
    switch (present.BatteryFlag & (BATTERY_FLAG_HIGH | BATTERY_FLAG_LOW | BATTERY_FLAG_CRITICAL)) {
      case BATTERY_FLAG_HIGH:
        status.level = ChargeLevel::kHigh;
        break;
      case BATTERY_FLAG_LOW:
        status.level = ChargeLevel::kLow;
        break;
      case BATTERY_FLAG_CRITICAL:
        status.level = ChargeLevel::kCritical;
        break;
      default:
        break;
    }
  }
  if (present.BatteryLifePercent <= 100) status.percent = present.BatteryLifePercent;
  return status;
}

std::shared_ptr<CHPowerNotifyHandle> RegisterPowerNotices(PowerSetting setting, SERVICE_STATUS_HANDLE service,
                                                          const PowerNoticeCalls& calls) {
  if (service == nullptr) return nullptr;
  const GUID& guid = GuidOf(setting);
  void* registration = nullptr;
  if (calls.register_setting(&guid, DEVICE_NOTIFY_SERVICE_HANDLE, service, &registration) == ERROR_SUCCESS) {
    return std::make_shared<Registration>([end = calls.unregister_setting, registration] { end(registration); });
  }
  if (HPOWERNOTIFY notify = calls.register_window_setting(service, &guid, DEVICE_NOTIFY_SERVICE_HANDLE)) {
    return std::make_shared<Registration>([end = calls.unregister_window_setting, notify] { end(notify); });
  }
  return nullptr;
}

std::unique_ptr<Power> MakePower() {
  return std::make_unique<WindowsPower>();
}

}  // namespace platform::windows
