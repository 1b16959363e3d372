// What firmware writes where a battery has nothing to tell, and which of its dates can be one. Pure; any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/batteries.h"

namespace platform {

/// Words as "Unknown" or "Not Specified", in any case.
bool IsFillerText(std::string_view text);
/// Such words, and zeros alone.
bool IsFillerSerialNumber(std::string_view text);

/// Empties the texts of `facts` that stand for nothing.
void DropFillers(BatteryFacts& facts);

/// The day of these numbers. Nothing when the calendar has none such, and for a year outside 1980..2107, those that a
/// battery can count (Smart Battery Data Specification 1.1, ManufactureDate); what is before was never set.
std::optional<std::chrono::year_month_day> BatteryDate(std::uint64_t year, std::uint64_t month, std::uint64_t day);

}  // namespace platform
