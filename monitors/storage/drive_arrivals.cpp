#include "monitors/storage/drive_arrivals.h"

#include <utility>

#include "platform/system_event.h"

namespace TVK {

void DriveArrivals::Follow(platform::Runtime& runtime, std::function<void()> look) {
  const std::lock_guard lock(mutex_);
  if (!ended_) timer_ = std::make_unique<OneShotTimer>(runtime, "tvk-drives", std::move(look));
}

void DriveArrivals::OnSystemEvent(const platform::SystemEvent& event) {
  if (!std::holds_alternative<platform::DriveChange>(event)) return;
  const std::lock_guard lock(mutex_);
  if (timer_ != nullptr) timer_->Arm(kSettling);
}

void DriveArrivals::End() {
  std::unique_ptr<OneShotTimer> timer;  // goes, and waits for its callback, when the lock is free
  const std::lock_guard lock(mutex_);
  ended_ = true;
  timer.swap(timer_);
}

}  // namespace TVK
