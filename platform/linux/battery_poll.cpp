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
  std::set<std::string> awaited;
  for (auto& [slot, battery] : followed_) {
    if (battery.second_look) awaited.insert(slot);
    // Over with this look, also where it tells nothing of the battery.
    if (battery.second_look && *battery.second_look <= when) battery.second_look.reset();
  }
  for (const auto& [slot, seen] : look.batteries) {
    const bool told = seen.in_use && (seen.percent || !*seen.in_use);
    if (!told) continue;
    Followed& battery = followed_[slot];
    const std::optional<std::uint32_t> before = battery.seen.percent;
    const bool noticed_now = cause == Cause::kNotice && noticed.contains(slot);
    const bool by_notice = noticed_now || (cause == Cause::kPoll && awaited.contains(slot));
    if (before && seen.percent && *seen.percent != *before) {
      const bool next = *seen.percent + 1 == *before || *seen.percent == *before + 1;
      // With a change of the source comes a notice whatever the battery's driver does.
      if (by_notice && look.source == battery.source) {
        battery.tells = next;
      } else if (cause == Cause::kPoll) {
        battery.tells = false;
      }
      battery.second_look.reset();
    } else if (noticed_now && before) {
      battery.second_look = when + kReadingsKept;
    }
    battery.source = look.source;
    battery.seen = seen;
  }
}

std::optional<SteadyTime> BatteryPoll::due() const {
  std::optional<SteadyTime> due;
  const auto sooner = [&](SteadyTime time) { due = due ? std::min(*due, time) : time; };
  for (const auto& [slot, battery] : followed_) {
    if (battery.seen.in_use == true && !battery.tells) sooner(looked_ + interval_);
    if (battery.second_look) sooner(*battery.second_look);
  }
  return due;
}

}  // namespace platform
