#include "platform/windows/power_windows.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <utility>

namespace platform::windows {
namespace {

TEST(PowerWindows, StatusIsWhatTheFlagsSay) {
  using enum ChargeLevel;
  struct Row {
    BYTE line, flags, percent;
    PowerStatus status;
  };
  for (const Row& row :
       {Row{1, 1, 100, {PowerSource::kAc, 100, kHigh, false, true}},
        Row{1, 9, 99, {PowerSource::kAc, 99, kHigh, true, true}}, Row{1, 8, 50, {PowerSource::kAc, 50, {}, true, true}},
        Row{0, 0, 50, {PowerSource::kBattery, 50, {}, false, true}},
        Row{0, 2, 20, {PowerSource::kBattery, 20, kLow, false, true}},
        Row{0, 4, 3, {PowerSource::kBattery, 3, kCritical, false, true}},
        Row{1, 12, 3, {PowerSource::kAc, 3, kCritical, true, true}},
        Row{0, 6, 3, {PowerSource::kBattery, 3, {}, false, true}},
        Row{1, 128, 255, {PowerSource::kAc, {}, {}, false, false}},
        Row{1, 136, 0, {PowerSource::kAc, {}, {}, false, false}}, Row{255, 255, 255, {{}, {}, {}, false, {}}},
        Row{255, 255, 40, {{}, 40, {}, false, {}}}}) {
    SYSTEM_POWER_STATUS present{};
    present.ACLineStatus = row.line;
    present.BatteryFlag = row.flags;
    present.BatteryLifePercent = row.percent;
    const PowerStatus status = PowerStatusOf(present);
    EXPECT_EQ(
        std::tie(status.source, status.percent, status.level, status.charging, status.has_battery),
        std::tie(row.status.source, row.status.percent, row.status.level, row.status.charging, row.status.has_battery))
        << int{row.line} << " " << int{row.flags};
  }
}

/// What the system is told; the first call refuses where the service's handle is not what it wants.
struct PlayedSystem {
  static inline std::string told;
  static inline bool refuses = false;
  static inline bool refuses_all = false;
  static inline std::function<void()> on_registration;  ///< Called once, before a registration returns.

  static std::string What(const GUID& setting, DWORD flags, HANDLE service) {
    const bool source = IsEqualGUID(setting, GUID_ACDC_POWER_SOURCE);
    EXPECT_TRUE(source || IsEqualGUID(setting, GUID_BATTERY_PERCENTAGE_REMAINING));
    EXPECT_EQ(flags, DWORD{DEVICE_NOTIFY_SERVICE_HANDLE});
    EXPECT_EQ(service, Service());
    return source ? "source" : "percent";
  }
  static DWORD WINAPI Register(const GUID* setting, DWORD flags, HANDLE service, void** registration) {
    told += "+" + What(*setting, flags, service);
    *registration = &told;
    if (refuses) return ERROR_INVALID_HANDLE;
    if (const auto tell = std::exchange(on_registration, nullptr)) tell();
    return ERROR_SUCCESS;
  }
  static DWORD WINAPI Unregister(void* registration) {
    EXPECT_EQ(registration, &told);
    told += "-";
    return ERROR_SUCCESS;
  }
  static HPOWERNOTIFY WINAPI RegisterOlder(HANDLE service, const GUID* setting, DWORD flags) {
    told += "+older " + What(*setting, flags, service);
    if (refuses_all) return nullptr;
    if (const auto tell = std::exchange(on_registration, nullptr)) tell();
    return &refuses;
  }
  static WINBOOL WINAPI UnregisterOlder(HPOWERNOTIFY registration) {
    EXPECT_EQ(registration, &refuses);
    told += "-older";
    return TRUE;
  }
  static SERVICE_STATUS_HANDLE Service() {
    static int service = 0;
    return reinterpret_cast<SERVICE_STATUS_HANDLE>(&service);
  }
};

TEST(PowerWindows, NoticesAreAskedForWithTheServicesStatusHandle) {
  using System = PlayedSystem;
  const PowerNoticeCalls calls{System::Register, System::Unregister, System::RegisterOlder, System::UnregisterOlder};
  const auto tell = [&](PowerSetting setting, SERVICE_STATUS_HANDLE service) {
    System::told.clear();
    const bool refused = RegisterPowerNotices(setting, service, calls) == nullptr;  // given up again
    return System::told + (refused ? " refused" : "");
  };
  EXPECT_EQ(tell(PowerSetting::kPowerSource, nullptr), " refused");
  EXPECT_EQ(tell(PowerSetting::kPowerSource, System::Service()), "+source-");
  EXPECT_EQ(tell(PowerSetting::kBatteryPercent, System::Service()), "+percent-");
  // Windows tells the present value meanwhile, in the call and on other threads; a service may then ask for the next.
  const auto ask = [&] {
    EXPECT_NE(RegisterPowerNotices(PowerSetting::kPowerSource, System::Service(), calls), nullptr);
  };
  System::on_registration = [&] {
    ask();
    std::thread(ask).join();
  };
  EXPECT_EQ(tell(PowerSetting::kBatteryPercent, System::Service()), "+percent+source-+source--");
  System::refuses = true;
  EXPECT_EQ(tell(PowerSetting::kBatteryPercent, System::Service()), "+percent+older percent-older");
  System::refuses_all = true;
  EXPECT_EQ(tell(PowerSetting::kPowerSource, System::Service()), "+source+older source refused");
}

}  // namespace
}  // namespace platform::windows
