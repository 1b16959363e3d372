#include "client/storage/drive_lane.h"

#include <utility>

namespace StorageCollector {

std::wstring Words(Silence silence) {
  switch (silence) {
    case Silence::kNone:
      return L"it answered";
    case Silence::kNoRight:
      return L"this process has no right to ask it";
    case Silence::kNotSupported:
      return L"it does not support that, or what it is attached to does not pass it on";
    case Silence::kAsleep:
      return L"it is asleep, and is not woken";
    case Silence::kHung:
      return L"it did not answer in time, and is left alone for a while";
    case Silence::kLeftAlone:
      return L"it is left alone: it did not answer in time lately, or is being asked";
    case Silence::kStopped:
      return L"the reading was stopped";
    case Silence::kGone:
      return L"it is not attached any more";
    case Silence::kRefused:
      return L"it refused";
    case Silence::kDamaged:
      return L"what it told is damaged";
    case Silence::kFailed:
      break;
  }
  return L"the reading failed";
}

DriveLane::DriveLane(platform::Runtime& runtime, const TVK::Log& log, std::wstring path)
    : runtime_(runtime), log_(log), path_(std::move(path)), calls_(runtime, log, "tvk-drive") {}

DriveLane::Waiting DriveLane::Begin(std::function<void()> call, std::chrono::milliseconds limit) {
  {
    const std::lock_guard lock(mutex_);
    if (rests_until_ && runtime_.clock().Steady() < *rests_until_) {
      return [](platform::Waitable*) { return Silence::kLeftAlone; };
    }
  }
  return [this, limit, begun = calls_.Begin(std::move(call), limit)](platform::Waitable* stop) mutable {
    using Outcome = TVK::LimitedCalls::Outcome;
    switch (begun.Await(stop)) {
      case Outcome::kDone:
        return Silence::kNone;
      case Outcome::kStopped:
        return Silence::kStopped;
      case Outcome::kBusy:
        return Silence::kLeftAlone;
      case Outcome::kFailed:
        return Silence::kFailed;
      case Outcome::kTimedOut:
        break;
    }
    if (limit >= kSessionLimit) Rest();  // the patience of less says nothing of the drive
    return Silence::kHung;
  };
}

void DriveLane::Rest() {
  const std::lock_guard lock(mutex_);
  rests_until_ = runtime_.clock().Steady() + kRest;
}

std::optional<DriveIdentity> DriveLane::identity() const {
  const std::lock_guard lock(mutex_);
  return identity_;
}

void DriveLane::set_identity(std::optional<DriveIdentity> identity) {
  const std::lock_guard lock(mutex_);
  identity_ = std::move(identity);
}

bool DriveLane::TakeSenselessIdentity() {
  constexpr int kEnough = 3;
  constexpr std::chrono::minutes kApart{1};  // the datasets look at the drives some times as they start
  const std::lock_guard lock(mutex_);
  const platform::SteadyTime now = runtime_.clock().Steady();
  if (senseless_identities_ < kEnough && (!senseless_at_ || now - *senseless_at_ >= kApart)) {
    ++senseless_identities_;
    senseless_at_ = now;
  }
  return senseless_identities_ == kEnough;
}

void DriveLane::Note(const std::wstring& what, Silence silence, std::uint32_t error) {
  if (silence == Silence::kStopped) return;
  {
    const std::lock_guard lock(mutex_);
    Silence& noted = noted_.try_emplace(what, Silence::kNone).first->second;
    if (std::exchange(noted, silence) == silence) return;
  }
  if (silence == Silence::kNone) {
    log_.i(L"%s: %s is told again", path_, what);
  } else {
    log_.e(L"%s: %s is not told: %s (error 0x%X)", path_, what, Words(silence), error);
  }
}

bool DriveLane::TakeSelfTest() {
  const std::lock_guard lock(mutex_);
  return !std::exchange(self_test_taken_, true);
}

void DriveLane::ReturnSelfTest() {
  const std::lock_guard lock(mutex_);
  self_test_taken_ = false;
}

}  // namespace StorageCollector
