#include <algorithm>

#include "client/battery/battery_properties.h"
#include "client/battery/battery_source.h"

namespace TVK {
namespace {

/// The battery of `list` that `info` is about, or null. Its serial number decides, so that a battery that was replaced
/// leaves nothing to the next one; its slot's number only while one of the two serial numbers is not known.
BatteryInfo* FindBattery(const PwmFileInfo& info, std::list<BatteryInfo>& list) {
  const bool has_serial = !info.serial_number.empty() && info.serial_number != BatteryInfo::kUnknown;
  const auto same = std::ranges::find(list, info.serial_number, &BatteryInfo::batterySerialNumber);
  if (has_serial && same != list.end()) return &*same;
  const auto numbered = std::ranges::find(list, std::optional(info.battery_number - 1), &BatteryInfo::number);
  if (numbered == list.end()) return nullptr;
  const bool is_another = has_serial && numbered->batterySerialNumber() != BatteryInfo::kUnknown;
  return is_another ? nullptr : &*numbered;
}

}  // namespace

void GetBatteryInfoFromPwmLogFile(platform::PowerManager& power_manager, std::list<BatteryInfo>& list,
                                  SourceFaults& faults) {
  if (list.empty()) return;
  for (const PwmFileInfo& info : PwmFileTool(faults).GetPwmFileInfoList(power_manager)) {
    BatteryInfo* const battery = FindBattery(info, list);
    if (battery == nullptr) continue;
    PwmFileInfo known = battery->pwmFileInfo();
    // Where the machine does not know the serial number a log may tell of two batteries: the one that was used last.
    const bool of_two = known.battery_number != 0 && !known.serial_number.empty() && !info.serial_number.empty() &&
                        known.serial_number != info.serial_number;
    if (!of_two) known.Add(info);
    if (known.battery_number == 0 || (of_two && info.usage_date > known.usage_date)) known = info;
    battery->set_pwmFileInfo(std::move(known));
  }
  for (BatteryInfo& battery : list) {
    const PwmFileInfo& info = battery.pwmFileInfo();
    BatteryInfo told;
    Describe(told, &BatteryInfo::set_batteryFirstUseDate, info.first_use_date);
    Describe(told, &BatteryInfo::set_batteryCycleCount, info.cycle_count);
    Describe(told, &BatteryInfo::set_batteryTotalBatteryAwakeHrs, info.usage_hours);
    battery.Complete(told);
  }
}

}  // namespace TVK
