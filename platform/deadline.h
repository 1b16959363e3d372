// From a timeout to the moment it ends, without overflow.
#pragma once

#include <algorithm>
#include <optional>

#include "platform/clock.h"

namespace platform {

/// `delay` from `now` (negative counts as zero); nothing when that lies past the end of the steady clock, which no
/// process lives to see: such a deadline never comes.
constexpr std::optional<SteadyTime> DeadlineAfter(SteadyTime now, milliseconds delay) {
  const milliseconds left = std::chrono::floor<milliseconds>(SteadyTime::max() - now);
  if (delay >= left) return std::nullopt;
  return now + std::max(delay, milliseconds(0));
}

}  // namespace platform
