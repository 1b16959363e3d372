#include "client/battery/battery_source.h"

namespace TVK {

void GetBatteryInfoFromPwmLogFile(platform::PowerManager& power_manager, std::list<BatteryInfo>& list, const Log& log) {
  if (list.empty()) return;
  const std::vector<PwmFileInfo> infos = PwmFileTool(log).GetPwmFileInfoList(power_manager);
  std::uint32_t number = 0;
  for (BatteryInfo& battery : list) {
    const std::wstring& serial = battery.batterySerialNumber();
    PwmFileInfo newest{.battery_number = ++number, .serial_number = serial == BatteryInfo::kUnknown ? L"" : serial};
    for (const PwmFileInfo& info : infos) {
      if (info.IsAbout(newest.battery_number, newest.serial_number)) newest.Add(info);
    }
    BatteryInfo told;
    Describe(told, &BatteryInfo::set_batteryFirstUseDate, newest.first_use_date);
    Describe(told, &BatteryInfo::set_batteryCycleCount, newest.cycle_count);
    Describe(told, &BatteryInfo::set_batteryTotalBatteryAwakeHrs, newest.usage_hours);
    battery.Complete(told);
    battery.set_pwmFileInfo(std::move(newest));
  }
}

}  // namespace TVK
