// Days in the life of a battery, as texts. Pure; any thread.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace TVK {

/// The day of three numbers with a hyphen between each two, "2024-5-31" as well as "2024-05-31"; nothing when `text` is
/// anything else or no battery has such a day.
std::optional<std::chrono::year_month_day> ParseBatteryDate(std::string_view text);

/// "2024-05-31", as records have it.
std::wstring BatteryDateText(const std::chrono::year_month_day& date);

}  // namespace TVK
