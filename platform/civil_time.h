// The calendar of a zone with a fixed distance from UTC.
#pragma once

#include <cstdint>

#include "platform/clock.h"

namespace platform {

/// The calendar time of `unix_seconds` at `utc_offset_minutes`. The start of 1970 at UTC when the year would not fit
/// the calendar (-32767..32767).
inline LocalTime ToCivil(std::int64_t unix_seconds, int utc_offset_minutes) {
  using std::chrono::days;
  using std::chrono::seconds;
  using std::chrono::sys_days;
  constexpr auto kFirst = sys_days(std::chrono::year::min() / 1 / 2).time_since_epoch() / seconds(1);
  constexpr auto kLast = sys_days(std::chrono::year::max() / 12 / 30).time_since_epoch() / seconds(1);
  if (unix_seconds < kFirst || unix_seconds > kLast) return {};

  const std::chrono::sys_seconds local(seconds(unix_seconds) + std::chrono::minutes(utc_offset_minutes));
  const sys_days day = std::chrono::floor<days>(local);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss time(local - day);
  return {.year = static_cast<int>(date.year()),
          .month = static_cast<int>(static_cast<unsigned>(date.month())),
          .day = static_cast<int>(static_cast<unsigned>(date.day())),
          .hour = static_cast<int>(time.hours().count()),
          .minute = static_cast<int>(time.minutes().count()),
          .second = static_cast<int>(time.seconds().count()),
          .utc_offset_minutes = utc_offset_minutes};
}

/// The inverse; fields out of their range are carried over as mktime does. -1 for a moment before 1970 or when the year
/// does not fit the calendar.
inline std::int64_t FromCivil(const LocalTime& local, int utc_offset_minutes) {
  const std::int64_t months = std::int64_t{local.year} * 12 + local.month - 1;
  const std::int64_t year = months / 12;
  if (months < 0 || year > static_cast<int>(std::chrono::year::max())) return -1;

  const auto month = std::chrono::month(static_cast<unsigned>(months % 12 + 1));
  const std::chrono::sys_days first(std::chrono::year(static_cast<int>(year)) / month / 1);
  const std::int64_t day = std::int64_t{first.time_since_epoch().count()} + local.day - 1;
  const std::int64_t minutes = (day * 24 + local.hour) * 60 + local.minute - utc_offset_minutes;
  const std::int64_t unix_seconds = minutes * 60 + local.second;
  return unix_seconds < 0 ? -1 : unix_seconds;
}

}  // namespace platform
