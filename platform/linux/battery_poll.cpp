#include "platform/linux/battery_poll.h"

namespace platform {

void BatteryPoll::NoteLook(SteadyTime when, Cause cause, const Look& look) {
  looked_ = when;
  const bool told = look.in_use && (look.percent || !*look.in_use);
  if (!told) return;
  const bool comparable = last_ && last_->percent && look.percent && cause != Cause::kOther;
  if (comparable && *look.percent != *last_->percent) {
    const bool next = *look.percent + 1 == *last_->percent || *look.percent == *last_->percent + 1;
    // With a change of the source comes a notice whatever the battery's driver does.
    if (cause == Cause::kPoll) {
      tells_ = false;
    } else if (look.source == last_->source) {
      tells_ = next;
    }
  }
  last_ = look;
}

std::optional<SteadyTime> BatteryPoll::due() const {
  const bool useful = last_ && *last_->in_use && !tells_;
  return useful ? std::optional(looked_ + interval_) : std::nullopt;
}

}  // namespace platform
