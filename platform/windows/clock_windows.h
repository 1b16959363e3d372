// The system's clock and calendar.
#pragma once

#include "platform/clock.h"

namespace platform::windows {

class WindowsClock final : public Clock {
 public:
  WallTime Now() const override;
  /// The performance counter. It runs on while the machine sleeps.
  SteadyTime Steady() const override;
  /// Moments outside the years 1601..30827, which the system's calendar covers, count as its first or last one.
  LocalTime ToLocal(std::int64_t unix_seconds) const override;
  /// Also -1 for a moment after the year 30827. In the hour that is left out in spring and the one that comes twice in
  /// autumn, the system's own choice.
  std::int64_t FromLocal(const LocalTime& local) const override;
};

}  // namespace platform::windows
