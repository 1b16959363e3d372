#include "client/battery/battery_source.h"
#include "client/battery/smart_battery_status.h"
#include "platform/power_manager.h"

namespace TVK {
namespace {

/// The failures among the library's statuses.
bool IsFailure(std::uint32_t status) {
  return status == 1 || status == 5 || status == 7;
}

}  // namespace

void GetBatteryInfoFromPMDriver(platform::PowerManager& power_manager, std::list<BatteryInfo>& list,
                                SourceFaults& faults) {
  bool answered = false;
  for (BatteryInfo& battery : list) {
    if (!battery.number()) continue;
    const std::uint32_t number = *battery.number() + 1;
    const auto answer = power_manager.ReadSmartBattery(number);
    if (!answer) continue;
    answered = true;
    const std::uint32_t status = answer->result & 0xFFFF;
    if (IsFailure(status)) {
      faults.Add(FormatWide(L"%d: %d", number, status), FormatWide(L"GetBatteryInfoFromPMDriver failed=%d", status));
      continue;
    }
    BatteryInfo told;
    Describe(DecodeSmartBatteryStatus(answer->status_block, answer->information_block), told);
    if (const auto words = power_manager.ReadFirmwareVersion(number))
      told.set_batteryFwVersion(FormatWide(L"%04x-%04x-%04x-%04x", (*words)[0], (*words)[1], (*words)[2], (*words)[3]));
    if (!battery.IsPerhaps(told)) continue;
    for (const auto& [get, set] : {std::pair(&BatteryInfo::batteryCondition, &BatteryInfo::set_batteryCondition),
                                   {&BatteryInfo::batteryFwVersion, &BatteryInfo::set_batteryFwVersion}}) {
      if ((told.*get)() != BatteryInfo::kUnknown) (battery.*set)((told.*get)());
    }
    battery.Complete(told);
  }
  if (answered) faults.EndReading();
}

}  // namespace TVK
