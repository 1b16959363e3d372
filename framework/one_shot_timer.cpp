#include "framework/one_shot_timer.h"

#include <system_error>
#include <utility>

#include "client/log/guarded_thread.h"
#include "client/log/service_logs.h"
#include "client/text/string.h"
#include "platform/deadline.h"

namespace TVK {

OneShotTimer::OneShotTimer(platform::Runtime& runtime, std::string thread_name, std::function<void()> callback)
    : runtime_(runtime),
      name_(std::move(thread_name)),
      callback_(std::move(callback)),
      moved_(runtime.MakeEvent(platform::EventReset::kAuto)) {
  utility::InitLog(log_, ServiceLog(L"TimerThread.log"), 4);
}

OneShotTimer::~OneShotTimer() {
  {
    const std::lock_guard lock(mutex_);
    closing_ = true;
    due_.reset();
    moved_->Set();
  }
  if (thread_.joinable()) runtime_.Join(thread_);
}

bool OneShotTimer::Arm(std::chrono::milliseconds delay) {
  const std::lock_guard lock(mutex_);
  if (closing_) return true;
  due_ = platform::DeadlineAfter(runtime_.clock().Steady(), delay);
  if (running_) {
    moved_->Set();
    return true;
  }
  return BeginLocked();
}

bool OneShotTimer::Retry() {
  const std::lock_guard lock(mutex_);
  return closing_ || running_ || !due_ || BeginLocked();
}

bool OneShotTimer::BeginLocked() {
  if (thread_.joinable()) runtime_.Join(thread_);  // It is past everything that takes the lock.
  try {
    thread_ = StartGuardedThread(runtime_, log_, name_, [this] { Run(); });
    running_ = true;
  } catch (const std::system_error& failure) {
    log_.e(L"%s: cannot be armed: %s", String::UTF8ToUTF16(name_), String::UTF8ToUTF16(failure.what()));
  }
  return running_;
}

void OneShotTimer::Run() {
  std::unique_lock lock(mutex_);
  while (due_.has_value()) {
    const platform::SteadyTime due = *due_;
    if (due > runtime_.clock().Steady()) {
      lock.unlock();
      runtime_.WaitUntil(*moved_, due);
      lock.lock();
      continue;
    }
    due_.reset();
    lock.unlock();
    CallLogged(log_, name_, callback_);
    lock.lock();
  }
  running_ = false;
}

}  // namespace TVK
