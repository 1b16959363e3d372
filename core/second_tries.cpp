#include "core/second_tries.h"

#include <algorithm>

namespace TVK {

void SecondTries::Want(platform::SteadyTime now) {
  if (due_) return;
  // What was refused long after the last try has nothing to do with it.
  if (tried_at_ && now - *tried_at_ >= pause_) pause_ = kFirstPause;
  due_ = now + pause_;
}

std::chrono::milliseconds SecondTries::Pause(platform::SteadyTime now) const {
  if (!due_) return platform::kForever;
  return std::max(std::chrono::ceil<std::chrono::milliseconds>(*due_ - now), std::chrono::milliseconds(0));
}

void SecondTries::Begin(platform::SteadyTime now) {
  due_.reset();
  tried_at_ = now;
  pause_ = std::min(2 * pause_, kLongestPause);
}

}  // namespace TVK
