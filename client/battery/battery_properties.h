// How facts become the texts of a battery's record. Any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

class BatteryInfo;

namespace TVK {

using SetBatteryText = void (BatteryInfo::*)(std::wstring);

/// Each sets one property of `battery` by `set`, or leaves it when the value is absent (a text, in UTF-8: empty). Dates
/// become "2024-05-31".
void Describe(BatteryInfo& battery, SetBatteryText set, const std::string& value);
void Describe(BatteryInfo& battery, SetBatteryText set, const std::optional<std::uint32_t>& value);
void Describe(BatteryInfo& battery, SetBatteryText set, const std::optional<std::chrono::year_month_day>& value);

}  // namespace TVK
