// When the batteries must be looked at although the kernel sent no notice of them.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "platform/clock.h"
#include "platform/linux/power_supplies.h"

namespace platform {

/// Some drivers send a notice of each percent that a battery gains or loses, others send none: there somebody has to
/// look, and while nobody knows it yet, too. A machine may have batteries of both. One thread at a time.
class BatteryPoll {
 public:
  /// How long a driver may answer with what it read before, also behind its own notice: the kernel's ACPI driver a
  /// second (cache_time in drivers/acpi/battery.c).
  static constexpr milliseconds kReadingsKept{1100};

  enum class Cause {
    kNotice,  ///< The kernel's, of a power supply.
    kPoll,    ///< A look was due.
    kOther,   ///< The start, or a resume.
  };

  /// What was seen of a battery.
  struct Seen {
    std::optional<std::uint32_t> percent = {};
    std::optional<bool> in_use = {};  ///< It is being charged or discharged; absent: it does not tell.

    bool operator==(const Seen&) const = default;
  };
  /// What was seen.
  struct Look {
    std::optional<PowerSource> source = {};
    std::map<std::string, Seen> batteries = {};  ///< By slot.
  };

  /// On a machine that runs on battery one is in use: where none says so all count, since what they say may be a second
  /// old (the kernel's ACPI driver), and "Full" still. Where no adapter could tell that the plug was pulled all count
  /// at any time.
  static Look LookOf(const PowerReading& reading);

  /// `interval`: above zero.
  explicit BatteryPoll(milliseconds interval) : interval_(interval) {}

  /// That a battery's driver tells is taken from a notice of that battery which brought the very next percentage from
  /// the same source; that it does not, from a change that a poll found or a notice that came too late for it. What was
  /// seen last counts; a look at a battery that tells nothing just now saw nothing. `noticed`: of which supplies the
  /// notices were. A notice whose battery tells the same as before has it looked at once more when a reading that the
  /// driver kept is too old for it; what that look finds counts as the notice's.
  void NoteLook(SteadyTime when, Cause cause, const Look& look, const std::set<std::string>& noticed = {});

  /// When to look; absent: only when something happens. Apart from that second look never sooner than the interval
  /// after the last one.
  std::optional<SteadyTime> due() const;

 private:
  struct Followed {
    std::optional<PowerSource> source = {};  ///< When it was seen.
    Seen seen = {};
    bool tells = false;  ///< Its driver is known to.
    std::optional<SteadyTime> second_look = {};
  };

  milliseconds interval_;
  std::map<std::string, Followed> followed_;  ///< By slot; what was ever seen of those that are there.
  SteadyTime looked_;                         ///< Last.
};

}  // namespace platform
