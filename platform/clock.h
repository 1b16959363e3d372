// Time, as the component asks for it: wall time for records, steady time for waiting, and the local calendar.
#pragma once

#include <chrono>
#include <cstdint>

namespace platform {

using std::chrono::milliseconds;

/// A moment of wall time, milliseconds since 1970-01-01T00:00:00Z. It may jump when the user or the network sets the
/// clock: use it in records, never to wait.
using WallTime = std::chrono::sys_time<milliseconds>;

/// Time since an unspecified start that never runs backwards.
using SteadyTime = std::chrono::nanoseconds;

/// A moment in the calendar of the machine's time zone.
struct LocalTime {
  int year = 1970;
  int month = 1;  ///< 1..12
  int day = 1;    ///< 1..31
  int hour = 0;
  int minute = 0;
  int second = 0;
  int utc_offset_minutes = 0;  ///< Local time minus UTC; positive east of Greenwich. Ignored by `Clock::FromLocal`.
};

/// The clock of a runtime. Any thread may call it.
class Clock {
 public:
  virtual ~Clock() = default;

  virtual WallTime Now() const = 0;
  virtual SteadyTime Steady() const = 0;

  /// The local calendar time of `unix_seconds` (seconds since 1970, UTC).
  virtual LocalTime ToLocal(std::int64_t unix_seconds) const = 0;

  /// The inverse of `ToLocal`, by the rules of the machine's zone. Fields out of their range are carried over, as the C
  /// library's mktime does. Returns -1 for a moment before 1970.
  virtual std::int64_t FromLocal(const LocalTime& local) const = 0;

  /// `Now` in whole seconds since 1970.
  std::int64_t NowSeconds() const { return std::chrono::floor<std::chrono::seconds>(Now()).time_since_epoch().count(); }
};

}  // namespace platform
