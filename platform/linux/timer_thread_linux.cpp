#include "platform/linux/timer_thread_linux.h"

#include "platform/deadline.h"
#include "platform/linux/thread_linux.h"

namespace platform {
namespace {

SteadyTime Now() {
  return std::chrono::steady_clock::now().time_since_epoch();
}

}  // namespace

struct TimerThread::State {
  std::function<void()> callback;
  std::optional<Agenda::iterator> due;
};

class TimerThread::Timer final : public OneShotTimer {
 public:
  Timer(TimerThread& thread, std::function<void()> callback)
      : thread_(thread), state_(std::make_shared<State>(State{std::move(callback), {}})) {}
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;
  ~Timer() override { thread_.Disarm(*state_); }

  void Arm(milliseconds delay) override { thread_.Arm(state_, delay); }
  void Disarm() override { thread_.Disarm(*state_); }

 private:
  TimerThread& thread_;
  const std::shared_ptr<State> state_;  ///< Kept by the callback that destroys its own timer.
};

TimerThread::~TimerThread() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  earlier_.notify_one();
  if (thread_.joinable()) thread_.join();
}

std::unique_ptr<OneShotTimer> TimerThread::MakeTimer(std::function<void()> callback) {
  return std::make_unique<Timer>(*this, std::move(callback));
}

void TimerThread::Arm(const std::shared_ptr<State>& timer, milliseconds delay) {
  const std::lock_guard lock(mutex_);
  if (timer->due) agenda_.erase(*timer->due);
  timer->due.reset();
  const std::optional<SteadyTime> moment = DeadlineAfter(Now(), delay);
  if (!moment) return;
  if (!thread_.joinable()) thread_ = StartNamedThread("timers", [this] { Run(); });
  timer->due = agenda_.emplace(Key(*moment, next_arming_++), timer).first;
  if (*timer->due == agenda_.begin()) earlier_.notify_one();
}

void TimerThread::Disarm(State& timer) {
  std::unique_lock lock(mutex_);
  if (std::this_thread::get_id() != thread_.get_id()) {
    call_over_.wait(lock, [&] { return called_ != &timer; });
  }
  // After the callback: it may have armed its timer again.
  if (timer.due) agenda_.erase(*timer.due);
  timer.due.reset();
}

void TimerThread::Run() {
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    if (agenda_.empty()) {
      earlier_.wait(lock);
      continue;
    }
    const auto first = agenda_.begin();
    const SteadyTime moment = first->first.first;
    if (moment > Now()) {
      earlier_.wait_until(lock, std::chrono::steady_clock::time_point(moment));
      continue;
    }
    const std::shared_ptr<State> timer = first->second;
    agenda_.erase(first);
    timer->due.reset();
    called_ = timer.get();
    lock.unlock();
    timer->callback();
    lock.lock();
    called_ = nullptr;
    call_over_.notify_all();
  }
}

}  // namespace platform
