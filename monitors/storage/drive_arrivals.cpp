#include "monitors/storage/drive_arrivals.h"

#include <system_error>
#include <utility>

#include "platform/system_event.h"

namespace TVK {

bool DriveArrivals::Follow(platform::Runtime& runtime, const Log& log, std::function<void()> look) {
  const std::lock_guard lock(mutex_);
  if (ended_) return true;
  try {
    timer_ = std::make_unique<OneShotTimer>(runtime, "tvk-drives", std::move(look));
  } catch (const std::system_error& refusal) {
    log.e(L"drives that come and go are not followed: error %d", refusal.code().value());
  }
  return timer_ != nullptr;
}

bool DriveArrivals::OnSystemEvent(const platform::SystemEvent& event) {
  if (!std::holds_alternative<platform::DriveChange>(event)) return true;
  const std::lock_guard lock(mutex_);
  return timer_ == nullptr || timer_->Arm(kSettling);
}

bool DriveArrivals::Retry() {
  const std::lock_guard lock(mutex_);
  return timer_ == nullptr || timer_->Retry();
}

void DriveArrivals::End() {
  std::unique_ptr<OneShotTimer> timer;  // goes, and waits for its callback, when the lock is free
  const std::lock_guard lock(mutex_);
  ended_ = true;
  timer.swap(timer_);
}

}  // namespace TVK
