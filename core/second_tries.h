// When what the system refused is asked for again.
#pragma once

#include <chrono>
#include <optional>

#include "platform/runtime.h"

namespace TVK {

/// A second after the first refusal, and twice as long after each one that follows: what lacks for good must not keep
/// the machine awake. One thread.
class SecondTries {
 public:
  static constexpr std::chrono::milliseconds kFirstPause{1'000};
  static constexpr std::chrono::milliseconds kLongestPause{300'000};

  /// Something was refused.
  void Want(platform::SteadyTime now);
  /// How long until the next try; kForever while there is none to come.
  std::chrono::milliseconds Pause(platform::SteadyTime now) const;
  /// The try is made now.
  void Begin(platform::SteadyTime now);

 private:
  std::chrono::milliseconds pause_ = kFirstPause;
  std::optional<platform::SteadyTime> due_;
  std::optional<platform::SteadyTime> tried_at_;
};

}  // namespace TVK
