#include "framework/timer_thread.h"

#include <algorithm>

#include "client/log/guarded_thread.h"
#include "client/log/service_logs.h"

using std::chrono::seconds;

namespace TVK {

PeriodicThread::PeriodicThread(platform::Runtime& runtime, Time time, seconds period, seconds first_delay,
                               std::string thread_name, std::function<void()> callback)
    : runtime_(runtime),
      name_(std::move(thread_name)),
      callback_(std::move(callback)),
      stop_(runtime.MakeEvent(platform::EventReset::kManual)) {
  utility::InitLog(log_, ServiceLog(L"TimerThread.log"), 4);
  period = std::max(period, seconds(1));
  first_delay = std::max(first_delay, seconds(0));
  const std::lock_guard lock(join_mutex_);
  thread_ = StartGuardedThread(runtime_, log_, name_, [this, time, period, first_delay] {
    own_id_ = std::this_thread::get_id();
    if (time == Time::kWaking) {
      Run(&platform::Clock::Steady, period, first_delay);
    } else {
      Run(&platform::Clock::Elapsed, period, first_delay);
    }
    ended_ = true;
  });
}

PeriodicThread::~PeriodicThread() {
  Stop();
}

void PeriodicThread::Stop() {
  stop_->Set();
  if (own_id_ == std::this_thread::get_id()) return;
  const std::lock_guard lock(join_mutex_);
  if (thread_.joinable()) runtime_.Join(thread_);
}

template <typename Moment>
void PeriodicThread::Run(Moment (platform::Clock::*now)() const, seconds period, seconds first_delay) {
  const platform::Clock& clock = runtime_.clock();
  Moment due = (clock.*now)() + first_delay;
  due_ = due.time_since_epoch().count();
  while (runtime_.WaitUntil(*stop_, due) == platform::kWaitTimeout) {
    CallLogged(log_, name_, callback_);
    const Moment after = (clock.*now)();
    due += period;
    if (due <= after) due += period * ((after - due) / period + 1);
    due_ = due.time_since_epoch().count();
  }
}

}  // namespace TVK
