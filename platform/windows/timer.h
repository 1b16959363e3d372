// One-shot timers on the process's thread pool: a timer that is not due costs no thread.
#pragma once

#include <functional>

#include "platform/clock.h"
#include "platform/runtime.h"

namespace platform::windows {

class ThreadPoolTimer final : public OneShotTimer {
 public:
  /// `clock` must outlive the timer. Throws std::system_error when the pool gives no timer.
  ThreadPoolTimer(const Clock& clock, std::function<void()> callback);
  ~ThreadPoolTimer() override;

  void Arm(milliseconds delay) override;
  void Disarm() override;

 private:
  class State;
  State* state_;  ///< Owned; a destructor that runs inside the callback leaves it to a work item of the pool.
};

}  // namespace platform::windows
