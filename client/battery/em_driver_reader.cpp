#include "client/battery/battery_source.h"
#include "platform/power_manager.h"

namespace TVK {

void GetBatteryInfoFromEmDriver(platform::PowerManager& power_manager, std::list<BatteryInfo>& list) {
  struct Query {
    std::uint32_t code;
    void (*decode)(std::span<const std::uint8_t>, _EM_BATTERY_INFO&);
  };
  for (BatteryInfo& battery : list) {
    if (!battery.number()) continue;
    _EM_BATTERY_INFO info;
    for (const auto& [code, decode] : {Query{kEmBatteryIdentity, DecodeEmIdentity},
                                       {kEmBatteryCondition, DecodeEmCondition},
                                       {kEmBatteryUsage, DecodeEmUsage}}) {
      if (const auto block = power_manager.QueryEnergyDriver(code, *battery.number())) decode(*block, info);
    }
    BatteryInfo told;
    Describe(info, told);
    if (!battery.IsPerhaps(told)) continue;
    battery.Complete(told);
    battery.set_EmBatteryInfo(info);
  }
}

}  // namespace TVK
