#include "platform/linux/battery_poll.h"

#include <algorithm>

namespace platform {

BatteryPoll::Look BatteryPoll::LookOf(const PowerReading& reading) {
  Look look{.source = reading.status.source};
  bool shown = false;
  for (const BatteryFacts& battery : reading.batteries) {
    Seen& seen = look.batteries[battery.slot];
    seen.percent = battery.percent;
    if (battery.state) seen.in_use = *battery.state != ChargeState::kIdle;
    shown = shown || seen.in_use == true;
  }
  if (!reading.has_adapter || (look.source == PowerSource::kBattery && !shown)) {
    for (auto& [slot, seen] : look.batteries)
      seen.in_use = true;
  }
  return look;
}

void BatteryPoll::NoteLook(SteadyTime when, Cause cause, const Look& look, const std::set<std::string>& noticed) {
  looked_ = when;
  std::erase_if(followed_, [&](const auto& one) { return !look.batteries.contains(one.first); });
  for (const auto& [slot, seen] : look.batteries) {
    const bool told = seen.in_use && (seen.percent || !*seen.in_use);
    if (!told) continue;
    Followed& battery = followed_[slot];
    const std::optional<std::uint32_t> before = battery.seen.percent;
    if (before && seen.percent && *seen.percent != *before) {
      const bool next = *seen.percent + 1 == *before || *seen.percent == *before + 1;
      // With a change of the source comes a notice whatever the battery's driver does.
      if (cause == Cause::kPoll) {
        battery.tells = false;
      } else if (cause == Cause::kNotice && noticed.contains(slot) && look.source == battery.source) {
        battery.tells = next;
      }
    }
    battery.source = look.source;
    battery.seen = seen;
  }
}

std::optional<SteadyTime> BatteryPoll::due() const {
  const bool useful = std::ranges::any_of(
      followed_, [](const auto& one) { return one.second.seen.in_use == true && !one.second.tells; });
  return useful ? std::optional(looked_ + interval_) : std::nullopt;
}

}  // namespace platform
