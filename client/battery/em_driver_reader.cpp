#include "client/battery/battery_source.h"
#include "platform/power_manager.h"

namespace TVK {

std::vector<BatteryInfo> GetBatteryInfoFromEmDriver(platform::PowerManager& power_manager, std::size_t count) {
  struct Query {
    std::uint32_t code;
    void (*decode)(std::span<const std::uint8_t>, _EM_BATTERY_INFO&);
  };
  std::vector<BatteryInfo> batteries(count);
  for (std::uint32_t number = 0; number < count; ++number) {
    _EM_BATTERY_INFO info;
    for (const auto& [code, decode] : {Query{kEmBatteryIdentity, DecodeEmIdentity},
                                       {kEmBatteryCondition, DecodeEmCondition},
                                       {kEmBatteryUsage, DecodeEmUsage}}) {
      if (const auto block = power_manager.QueryEnergyDriver(code, number)) decode(*block, info);
    }
    Describe(info, batteries[number]);
  }
  return batteries;
}

}  // namespace TVK
