// The periodic timer of scheduled monitors.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "client/log/log.h"
#include "platform/runtime.h"

namespace TVK {

/// Runs a callback on a thread of its own: first after a delay, then once a period, counted from start to start.
/// Periods that pass while the callback runs are left out, not made up for. An exception that leaves the callback is
/// logged and the timer goes on.
class PeriodicThread {
 public:
  enum class Time {
    /// Delay and periods are waking time: a sleep of the machine only interrupts them.
    kWaking,
    /// Delay and periods count sleep. What fell due in a sleep runs as the machine resumes, once however many periods
    /// passed; the calls after it come at the moments at which they would have come without the sleep.
    kElapsed,
  };

  /// Starts at once. `runtime` must outlive the object. `period`: at least one second; shorter counts as one second.
  /// `first_delay`: zero and below run the callback at once. `thread_name`: see Runtime::StartThread. Throws
  /// std::system_error when the system gives no thread or event.
  PeriodicThread(platform::Runtime& runtime, Time time, std::chrono::seconds period, std::chrono::seconds first_delay,
                 std::string thread_name, std::function<void()> callback);
  /// As Stop.
  ~PeriodicThread();
  PeriodicThread(const PeriodicThread&) = delete;
  PeriodicThread& operator=(const PeriodicThread&) = delete;

  /// Returns when the callback is not running and will not run. From the callback itself: returns at once, and the
  /// callback will not run again. Any thread, any number of times.
  void Stop();
  /// Stop without waiting: a callback that runs goes on, and none comes after it. Any thread, any number of times.
  void RequestStop() { stop_->Set(); }
  /// Whether no callback runs and none will. Any thread.
  bool ended() const { return ended_; }
  /// When the callback comes next, by the clock that was chosen; the past while it runs. Any thread.
  std::chrono::nanoseconds due() const { return std::chrono::nanoseconds(due_); }

 private:
  /// `now`: Clock::Steady or Clock::Elapsed.
  template <typename Moment>
  void Run(Moment (platform::Clock::*now)() const, std::chrono::seconds period, std::chrono::seconds first_delay);

  platform::Runtime& runtime_;
  Log log_;
  const std::string name_;
  const std::function<void()> callback_;
  const std::unique_ptr<platform::Event> stop_;
  std::atomic<bool> ended_ = false;
  std::atomic<std::int64_t> due_ = 0;    ///< Nanoseconds of the clock.
  std::atomic<std::thread::id> own_id_;  ///< The timer's thread's; set before the first callback.
  std::mutex join_mutex_;                ///< Guards thread_.
  std::thread thread_;
};

}  // namespace TVK

/// PeriodicThread in elapsed time, with a callback that takes an argument of type `T`; the name is that argument and
/// names the timer.
template <typename T>
class TimerThread {
 public:
  TimerThread(platform::Runtime& runtime, std::uint64_t period_seconds, const T& name,
              std::function<void(const T&)> callback, std::uint64_t first_delay_seconds)
      : thread_(runtime, TVK::PeriodicThread::Time::kElapsed, Seconds(period_seconds), Seconds(first_delay_seconds),
                "tvk-timer", [name, callback = std::move(callback)] { callback(name); }) {}

  void Stop() { thread_.Stop(); }
  void RequestStop() { thread_.RequestStop(); }
  bool ended() const { return thread_.ended(); }
  platform::ElapsedTime due() const { return platform::ElapsedTime(thread_.due()); }

 private:
  /// A century is as good as for ever, and leaves room to calculate with.
  static std::chrono::seconds Seconds(std::uint64_t count) {
    constexpr std::uint64_t kCentury = 100ull * 366 * 24 * 3600;
    return std::chrono::seconds(static_cast<std::int64_t>(count < kCentury ? count : kCentury));
  }

  TVK::PeriodicThread thread_;
};
