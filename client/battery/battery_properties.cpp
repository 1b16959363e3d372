#include "client/battery/battery_properties.h"

#include "client/battery/battery_date.h"
#include "client/battery/battery_info.h"
#include "client/text/string.h"

namespace TVK {

void Describe(BatteryInfo& battery, SetBatteryText set, const std::optional<std::uint32_t>& value) {
  if (value) (battery.*set)(std::to_wstring(*value));
}

void Describe(BatteryInfo& battery, SetBatteryText set, const std::optional<std::chrono::year_month_day>& value) {
  if (value) (battery.*set)(BatteryDateText(*value));
}

void Describe(BatteryInfo& battery, SetBatteryText set, const std::string& value) {
  if (!value.empty()) (battery.*set)(String::UTF8ToUTF16(value));
}

}  // namespace TVK
