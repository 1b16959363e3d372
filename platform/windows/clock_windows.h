// The system's clock and calendar.
#pragma once

#include "platform/clock.h"

namespace platform::windows {

/// Time since 1601-01-01T00:00:00Z as the system's file times count it.
using FileTimeTicks = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;
FileTimeTicks ToFileTime(WallTime moment);

class WindowsClock final : public Clock {
 public:
  WallTime Now() const override;
  /// The unbiased interrupt time, in steps of the system's tick (at most 16 ms). The performance counter is finer, but
  /// runs on while the machine sleeps, which waits do not.
  SteadyTime Steady() const override;
  /// The tick count, in the same steps. (The interrupt time that counts sleep came with Windows 10.)
  ElapsedTime Elapsed() const override;
  /// Moments outside the years 1601..30827, which the system's calendar covers, count as its first or last one.
  LocalTime ToLocal(std::int64_t unix_seconds) const override;
  /// Also -1 for a moment after the year 30827. In the hour that is left out in spring and the one that comes twice in
  /// autumn, the system's own choice.
  std::int64_t FromLocal(const LocalTime& local) const override;
};

}  // namespace platform::windows
