#include "platform/windows/timer.h"

#include <algorithm>
#include <mutex>
#include <optional>
#include <system_error>

#include "platform/windows/sys.h"

namespace platform::windows {

// The pool may call back a little early, for an arming that was replaced in the meantime, and on a second thread while
// a callback still runs. So what is due is decided here, and one callback at a time runs.
class ThreadPoolTimer::State {
 public:
  State(const Clock& clock, std::function<void()> callback) : clock_(clock), callback_(std::move(callback)) {
    timer_ = CreateThreadpoolTimer(&State::OnTimer, this, nullptr);
    if (timer_ == nullptr) {
      throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "CreateThreadpoolTimer");
    }
  }

  // Disarmed, and not on the callback's thread.
  ~State() {
    WaitForThreadpoolTimerCallbacks(timer_, TRUE);
    CloseThreadpoolTimer(timer_);
  }

  State(const State&) = delete;
  State& operator=(const State&) = delete;

  void Arm(milliseconds delay) {
    const std::lock_guard lock(mutex_);
    // A callback that Disarm waits for does not arm any more.
    if (closed_ || (disarming_ > 0 && running_thread_ == GetCurrentThreadId())) return;
    delay = std::clamp(delay, milliseconds(0), kLongestDelay);
    due_ = clock_.Steady() + delay;
    Schedule(delay);
  }

  // After it, with `close`, no arming counts any more. Returns whether it runs inside the callback.
  bool Disarm(bool close) {
    {
      const std::lock_guard lock(mutex_);
      due_.reset();
      closed_ = closed_ || close;
      SetThreadpoolTimer(timer_, nullptr, 0, 0);
      if (running_thread_ == GetCurrentThreadId()) return true;
      ++disarming_;
    }
    WaitForThreadpoolTimerCallbacks(timer_, TRUE);
    const std::lock_guard lock(mutex_);
    --disarming_;
    return false;
  }

 private:
  // Ten years; longer ones would leave the range of the steady clock.
  static constexpr milliseconds kLongestDelay = std::chrono::hours(24 * 3650);

  static void CALLBACK OnTimer(PTP_CALLBACK_INSTANCE, void* context, PTP_TIMER) { static_cast<State*>(context)->Run(); }

  // Needs the lock.
  void Schedule(std::chrono::nanoseconds delay) {
    // Relative due times are negative, in units of 100 ns.
    ULARGE_INTEGER due;
    due.QuadPart = static_cast<ULONGLONG>(-((delay.count() + 99) / 100));
    FILETIME time{due.LowPart, due.HighPart};
    SetThreadpoolTimer(timer_, &time, 0, 0);
  }

  void Run() {
    std::unique_lock lock(mutex_);
    if (running_thread_ != 0) return;  // the one that runs looks again when it is done
    while (due_.has_value()) {
      const SteadyTime left = *due_ - clock_.Steady();
      if (left > SteadyTime(0)) {
        Schedule(left);
        return;
      }
      due_.reset();
      running_thread_ = GetCurrentThreadId();
      lock.unlock();
      callback_();
      lock.lock();
      running_thread_ = 0;
    }
  }

  const Clock& clock_;
  const std::function<void()> callback_;
  PTP_TIMER timer_ = nullptr;
  std::mutex mutex_;               ///< Guards what follows.
  std::optional<SteadyTime> due_;  ///< When the pending arming is due.
  DWORD running_thread_ = 0;       ///< Where the callback runs; 0 when it does not.
  int disarming_ = 0;              ///< How many threads wait in Disarm.
  bool closed_ = false;
};

ThreadPoolTimer::ThreadPoolTimer(const Clock& clock, std::function<void()> callback)
    : state_(new State(clock, std::move(callback))) {}

ThreadPoolTimer::~ThreadPoolTimer() {
  if (!state_->Disarm(true)) {
    delete state_;
    return;
  }
  // Inside the callback, whose end must be waited for elsewhere. When the pool has no memory for that, the state stays.
  const auto clean_up = [](PTP_CALLBACK_INSTANCE, void* context) { delete static_cast<State*>(context); };
  TrySubmitThreadpoolCallback(clean_up, state_, nullptr);
}

void ThreadPoolTimer::Arm(milliseconds delay) {
  state_->Arm(delay);
}

void ThreadPoolTimer::Disarm() {
  state_->Disarm(false);
}

}  // namespace platform::windows
