// When the batteries must be looked at although the kernel sent no notice of them.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "platform/clock.h"
#include "platform/system_event.h"

namespace platform {

/// Some drivers send a notice of each percent that a battery gains or loses, others send none: there somebody has to
/// look, and while nobody knows it yet, too. One thread at a time.
class BatteryPoll {
 public:
  enum class Cause {
    kNotice,  ///< The kernel's, of a power supply.
    kPoll,    ///< A look was due.
    kOther,   ///< The start, or a resume.
  };

  /// What was seen.
  struct Look {
    std::optional<PowerSource> source = {};
    std::optional<std::uint32_t> percent = {};  ///< Of all batteries together.
    std::optional<bool> in_use = {};  ///< One is being charged or discharged; absent: there are some, none tells.
  };

  /// `interval`: above zero.
  explicit BatteryPoll(milliseconds interval) : interval_(interval) {}

  /// That the drivers tell is taken from a notice that brought the very next percentage from the same source; that they
  /// do not, from a change that a poll found or a notice that came too late for it. What was seen last counts; a look
  /// at batteries that tell nothing just now saw nothing.
  void NoteLook(SteadyTime when, Cause cause, const Look& look);

  /// When to look; absent: only when something happens. Never sooner than the interval after the last look.
  std::optional<SteadyTime> due() const;

 private:
  milliseconds interval_;
  std::optional<Look> last_;
  SteadyTime looked_;   ///< When that was.
  bool tells_ = false;  ///< The drivers are known to tell.
};

}  // namespace platform
