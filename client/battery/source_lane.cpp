#include "client/battery/source_lane.h"

namespace TVK {

SourceLane::SourceLane(platform::Runtime& runtime, const Log& log, std::wstring source)
    : log_(log), source_(std::move(source)), calls_(runtime, log, "tvk-batteries") {}

bool SourceLane::Run(std::function<void()> call, platform::Waitable* stop) {
  if (calls_.IsBusy()) return false;
  const LimitedCalls::Outcome outcome = calls_.Begin(std::move(call), kLimit).Await(stop);
  if (outcome == LimitedCalls::Outcome::kTimedOut) {
    hangs_ = true;
    log_.e(L"%s: no answer within %d s; it is not asked again before it comes back", source_, kLimit.count());
  }
  if (outcome != LimitedCalls::Outcome::kDone) return false;
  if (std::exchange(hangs_, false)) log_.i(L"%s: it answers again", source_);
  return true;
}

}  // namespace TVK
