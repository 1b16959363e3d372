#include "platform/battery_text.h"

#include <algorithm>
#include <string_view>

namespace platform {
namespace {

constexpr std::string_view kFillers[] = {"unknown", "not specified", "not available", "none", "n/a", "invalid"};

constexpr char Small(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

}  // namespace

bool IsFillerText(std::string_view text) {
  return std::ranges::any_of(kFillers,
                             [&](std::string_view filler) { return std::ranges::equal(text, filler, {}, Small); });
}

bool IsFillerSerialNumber(std::string_view text) {
  return IsFillerText(text) || (!text.empty() && text.find_first_not_of('0') == text.npos);
}

void DropFillers(BatteryFacts& facts) {
  for (std::string* const text : {&facts.name, &facts.manufacturer, &facts.chemistry})
    if (IsFillerText(*text)) text->clear();
  if (IsFillerSerialNumber(facts.serial_number)) facts.serial_number.clear();
}

std::optional<std::chrono::year_month_day> BatteryDate(std::uint64_t year, std::uint64_t month, std::uint64_t day) {
  constexpr std::uint64_t kFirstYear = 1980;
  constexpr std::uint64_t kLastYear = kFirstYear + 127;
  // The calendar's types would wrap larger numbers around.
  if (year < kFirstYear || year > kLastYear || month > 12 || day > 31) return std::nullopt;
  const std::chrono::year_month_day date(std::chrono::year(static_cast<int>(year)),
                                         std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(day)));
  return date.ok() ? std::optional(date) : std::nullopt;
}

}  // namespace platform
