// The one-shot timers of the Linux runtime: one thread for all of them, started by the first arming, asleep while none
// is due.
#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "platform/runtime.h"

namespace platform {

class TimerThread {
 public:
  TimerThread() = default;
  TimerThread(const TimerThread&) = delete;
  TimerThread& operator=(const TimerThread&) = delete;
  /// Every timer must be gone before.
  ~TimerThread();

  std::unique_ptr<OneShotTimer> MakeTimer(std::function<void()> callback);

 private:
  class Timer;
  struct State;
  /// The steady moment, then the order of arming.
  using Key = std::pair<SteadyTime, std::uint64_t>;
  using Agenda = std::map<Key, std::shared_ptr<State>>;

  void Arm(const std::shared_ptr<State>& timer, milliseconds delay);
  void Disarm(State& timer);
  void Run();

  std::mutex mutex_;                   ///< Guards everything below and the states of the timers.
  std::condition_variable earlier_;    ///< The first moment of the agenda came nearer, or stopping_.
  std::condition_variable call_over_;  ///< A callback returned.
  Agenda agenda_;
  std::uint64_t next_arming_ = 0;
  const State* called_ = nullptr;  ///< Whose callback is running.
  bool stopping_ = false;
  std::thread thread_;
};

}  // namespace platform
