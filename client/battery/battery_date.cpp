#include "client/battery/battery_date.h"

#include "client/log/wide_format.h"
#include "platform/battery_text.h"
#include "platform/text_scan.h"

namespace TVK {

std::optional<std::chrono::year_month_day> ParseBatteryDate(std::string_view text) {
  const std::size_t month_at = text.find('-') + 1;
  const std::size_t day_at = text.find('-', month_at) + 1;
  if (month_at == 0 || day_at == 0) return std::nullopt;
  const auto year = platform::ParseNumber(text.substr(0, month_at - 1));
  const auto month = platform::ParseNumber(text.substr(month_at, day_at - 1 - month_at));
  const auto day = platform::ParseNumber(text.substr(day_at));
  if (!year || !month || !day) return std::nullopt;
  return platform::BatteryDate(*year, *month, *day);
}

std::wstring BatteryDateText(const std::chrono::year_month_day& date) {
  return FormatWide(L"%04d-%02u-%02u", int{date.year()}, unsigned{date.month()}, unsigned{date.day()});
}

}  // namespace TVK
