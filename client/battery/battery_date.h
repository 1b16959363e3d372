// Days in the life of a battery. Pure; any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace TVK {

/// The day of these numbers; nothing when the calendar has none such, and for a year outside 1980..9999: smart
/// batteries count their years from 1980, and what is before stands for a date that was never set.
std::optional<std::chrono::year_month_day> MakeBatteryDate(std::uint64_t year, std::uint64_t month, std::uint64_t day);

/// The day of three numbers with a hyphen between each two, "2024-5-31" as well as "2024-05-31"; nothing when `text` is
/// anything else or there is no such day.
std::optional<std::chrono::year_month_day> ParseBatteryDate(std::string_view text);

/// "2024-05-31", as records have it.
std::wstring BatteryDateText(const std::chrono::year_month_day& date);

}  // namespace TVK
