// Time, as the component asks for it: wall time for records, two steady ones for waiting, and the local calendar.
//
// The two differ while the machine sleeps (suspended or hibernated). Waking time stands still: for patience with a
// peer, for letting a burst settle, for what is done while somebody is there. Elapsed time counts the sleep: for
// intervals that a person would name, once an hour, once a day. Their moments are of different types, which do not mix.
#pragma once

#include <chrono>
#include <cstdint>

namespace platform {

using std::chrono::milliseconds;

/// A moment of wall time, milliseconds since 1970-01-01T00:00:00Z. It may jump when the user or the network sets the
/// clock: use it in records, never to wait.
using WallTime = std::chrono::sys_time<milliseconds>;

struct WakingTimeline {};
struct ElapsedTimeline {};

/// A moment of waking time: since an unspecified start, never backwards, standing still while the machine sleeps.
using SteadyTime = std::chrono::time_point<WakingTimeline, std::chrono::nanoseconds>;

/// A moment of elapsed time: since an unspecified start, never backwards, sleep counted. Setting the wall clock does
/// not move it.
using ElapsedTime = std::chrono::time_point<ElapsedTimeline, std::chrono::nanoseconds>;

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
  virtual ElapsedTime Elapsed() const = 0;

  /// The local calendar time of `unix_seconds` (seconds since 1970, UTC).
  virtual LocalTime ToLocal(std::int64_t unix_seconds) const = 0;

  /// The inverse of `ToLocal`, by the rules of the machine's zone. Fields out of their range are carried over, as the C
  /// library's mktime does. Returns -1 for a moment before 1970.
  virtual std::int64_t FromLocal(const LocalTime& local) const = 0;

  /// `Now` in whole seconds since 1970.
  std::int64_t NowSeconds() const { return std::chrono::floor<std::chrono::seconds>(Now()).time_since_epoch().count(); }
};

}  // namespace platform
