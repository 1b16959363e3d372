// From a timeout to the moment it ends, and from there to the waits that the system offers.
#pragma once

#include <algorithm>

#include "platform/clock.h"
#include "platform/waitable.h"

namespace platform {

/// `delay` from `now` (negative counts as zero); `Time::max()`, which never comes, when that lies past the end of the
/// clock. `Time`: SteadyTime or ElapsedTime.
template <typename Time>
constexpr Time DeadlineAfter(Time now, milliseconds delay) {
  const milliseconds left = std::chrono::floor<milliseconds>(Time::max() - now);
  if (delay >= left) return Time::max();
  return now + std::max(delay, milliseconds(0));
}

/// A wait until `deadline`, made of waits that may end early, late or for nothing: the system counts in ticks, its
/// timeouts stop while the machine sleeps, and its timers by the wall clock move when that is set. `now` reads the
/// clock of the deadline. `turn` looks at what is waited for, then waits for at most the time it is given (zero: it
/// only looks); kWaitTimeout when nothing was found, whatever ended it. Returns what `turn` found, or kWaitTimeout
/// after a look that began at the deadline or later, and so no signal that came before it is missed.
template <typename Time, typename Now, typename Turn>
WaitCode WaitInTurns(Time deadline, Now now, Turn turn) {
  for (;;) {
    const Time begin = now();
    const bool last = begin >= deadline;
    const WaitCode found = turn(last ? std::chrono::nanoseconds(0) : deadline - begin);
    if (found != kWaitTimeout || last) return found;
  }
}

/// How long a system timer that counts sleep is set beyond a deadline of elapsed time. The wait's own timeout ends it
/// first, with the freedom to join other wake-ups that the system allows there; only after a sleep the timer does.
inline constexpr milliseconds kAlarmMargin(50);

}  // namespace platform
