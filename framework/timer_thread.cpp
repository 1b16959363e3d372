#include "framework/timer_thread.h"

#include <algorithm>
#include <exception>

#include "client/text/string.h"

using std::chrono::seconds;

void CallLogged(const TVK::Log& log, const std::string& name, const std::function<void()>& call) {
  try {
    call();
  } catch (const std::exception& failure) {
    log.e(L"%s: callback failed: %s", TVK::String::UTF8ToUTF16(name), TVK::String::UTF8ToUTF16(failure.what()));
  } catch (...) {
    log.e(L"%s: callback failed", TVK::String::UTF8ToUTF16(name));
  }
}

PeriodicThread::PeriodicThread(platform::Runtime& runtime, seconds period, seconds first_delay, std::string thread_name,
                               std::function<void()> callback)
    : runtime_(runtime),
      name_(std::move(thread_name)),
      callback_(std::move(callback)),
      stop_(runtime.MakeEvent(platform::EventReset::kManual)) {
  TVK::utility::InitLog(log_, L"TimerThread.log", 4);
  const std::lock_guard lock(join_mutex_);
  thread_ = runtime_.StartThread(
      name_, [this, period, first_delay] { Run(std::max(period, seconds(1)), std::max(first_delay, seconds(0))); });
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

void PeriodicThread::Run(seconds period, seconds first_delay) {
  own_id_ = std::this_thread::get_id();
  platform::SteadyTime due = runtime_.clock().Steady() + first_delay;
  for (;;) {
    const platform::SteadyTime now = runtime_.clock().Steady();
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(std::max(due - now, platform::SteadyTime::zero()));
    if (runtime_.Wait(*stop_, left) != platform::kWaitTimeout) break;
    CallLogged(log_, name_, callback_);
    const platform::SteadyTime after = runtime_.clock().Steady();
    due += period;
    if (due <= after) due += period * ((after - due) / period + 1);
  }
  ended_ = true;
}
