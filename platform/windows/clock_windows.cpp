#include "platform/windows/clock_windows.h"

#include "platform/civil_time.h"
#include "platform/windows/sys.h"

#include <algorithm>

namespace platform::windows {
namespace {

using std::chrono::floor;
using std::chrono::seconds;
using std::chrono::sys_days;
using std::chrono::sys_seconds;

// File times count from 1601-01-01.
constexpr sys_days kFileTimeStart = std::chrono::year(1601) / 1 / 1;
// SYSTEMTIME's last year is 30827; a day less leaves room for every zone.
constexpr sys_seconds kFirstMoment = kFileTimeStart + std::chrono::days(1);
constexpr sys_seconds kLastMoment = sys_days(std::chrono::year(30827) / 12 / 30);

SYSTEMTIME Calendar(sys_seconds moment) {
  const LocalTime civil = ToCivil(moment.time_since_epoch().count(), 0);
  SYSTEMTIME result{};
  result.wYear = static_cast<WORD>(civil.year);
  result.wMonth = static_cast<WORD>(civil.month);
  result.wDay = static_cast<WORD>(civil.day);
  result.wHour = static_cast<WORD>(civil.hour);
  result.wMinute = static_cast<WORD>(civil.minute);
  result.wSecond = static_cast<WORD>(civil.second);
  return result;
}

sys_seconds Moment(const SYSTEMTIME& calendar) {
  return sys_days(std::chrono::year(calendar.wYear) / calendar.wMonth / calendar.wDay) +
         std::chrono::hours(calendar.wHour) + std::chrono::minutes(calendar.wMinute) + seconds(calendar.wSecond);
}

// The machine's zone with the rules of `year`, which governments change now and then. A failure leaves UTC.
TIME_ZONE_INFORMATION ZoneOf(WORD year) {
  TIME_ZONE_INFORMATION zone{};
  DYNAMIC_TIME_ZONE_INFORMATION current{};
  if (GetDynamicTimeZoneInformation(&current) == TIME_ZONE_ID_INVALID ||
      !GetTimeZoneInformationForYear(year, &current, &zone)) {
    return {};
  }
  return zone;
}

}  // namespace

FileTimeTicks ToFileTime(WallTime moment) {
  return moment - kFileTimeStart;
}

WallTime WindowsClock::Now() const {
  FILETIME now;
  GetSystemTimePreciseAsFileTime(&now);
  const FileTimeTicks ticks((static_cast<std::int64_t>(now.dwHighDateTime) << 32) | now.dwLowDateTime);
  return kFileTimeStart + floor<milliseconds>(ticks);
}

SteadyTime WindowsClock::Steady() const {
  ULONGLONG now = 0;
  QueryUnbiasedInterruptTime(&now);
  return SteadyTime(FileTimeTicks(static_cast<std::int64_t>(now)));
}

ElapsedTime WindowsClock::Elapsed() const {
  return ElapsedTime(milliseconds(static_cast<std::int64_t>(GetTickCount64())));
}

LocalTime WindowsClock::ToLocal(std::int64_t unix_seconds) const {
  const sys_seconds utc = std::clamp(sys_seconds(seconds(unix_seconds)), kFirstMoment, kLastMoment);
  const SYSTEMTIME universal = Calendar(utc);
  const TIME_ZONE_INFORMATION zone = ZoneOf(universal.wYear);
  SYSTEMTIME local;
  if (!SystemTimeToTzSpecificLocalTime(&zone, &universal, &local)) local = universal;
  const auto offset = floor<std::chrono::minutes>(Moment(local) - utc);
  return {.year = local.wYear,
          .month = local.wMonth,
          .day = local.wDay,
          .hour = local.wHour,
          .minute = local.wMinute,
          .second = local.wSecond,
          .utc_offset_minutes = static_cast<int>(offset.count())};
}

std::int64_t WindowsClock::FromLocal(const LocalTime& local) const {
  // As if the zone lay a day west of UTC: the local evening before 1970 may be 1970 already at UTC.
  constexpr int kDayInMinutes = 24 * 60;
  const std::int64_t a_day_later = FromCivil(local, -kDayInMinutes);
  const sys_seconds moment = sys_seconds(seconds(a_day_later)) - std::chrono::minutes(kDayInMinutes);
  if (a_day_later < 0 || moment > kLastMoment) return -1;

  const SYSTEMTIME calendar = Calendar(moment);
  const TIME_ZONE_INFORMATION zone = ZoneOf(calendar.wYear);
  SYSTEMTIME universal;
  if (!TzSpecificLocalTimeToSystemTime(&zone, &calendar, &universal)) return -1;
  const std::int64_t result = Moment(universal).time_since_epoch().count();
  return result < 0 ? -1 : result;
}

}  // namespace platform::windows
