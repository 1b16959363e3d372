// A timer for what is to be done once, somewhat later, and later still when it is asked for again.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "client/log/log.h"
#include "platform/runtime.h"

namespace TVK {

/// Runs a callback once an arming, after a delay of waking time: what lets a burst of events settle must let it settle
/// while the machine is awake. The callback has a thread of its own, which lives from the arming to the end of the
/// callback; so it may block and holds up no other timer, and a timer that is not armed costs no thread. An exception
/// that leaves the callback is logged and the timer can be armed again.
class OneShotTimer {
 public:
  /// Not armed. `runtime` must outlive the object. `thread_name`: see Runtime::StartThread. Throws std::system_error
  /// when the system gives no event.
  OneShotTimer(platform::Runtime& runtime, std::string thread_name, std::function<void()> callback);
  /// Takes a pending arming back and waits for a running callback. Not on the callback's thread.
  ~OneShotTimer();
  OneShotTimer(const OneShotTimer&) = delete;
  OneShotTimer& operator=(const OneShotTimer&) = delete;

  /// The callback is due `delay` from now (negative counts as zero); an arming that is pending moves there. While the
  /// callback runs, on its own thread too, it makes it due again; it then runs when it has ended and the delay is over.
  /// False when the system gives no thread, which is logged: the arming then waits for the next one or Retry. Any
  /// thread; never waits for the callback.
  bool Arm(std::chrono::milliseconds delay);
  /// Begins an arming that was refused a thread; nothing when there is none. As Arm.
  bool Retry();

 private:
  bool BeginLocked();  // with mutex_ held
  void Run();

  platform::Runtime& runtime_;
  Log log_;
  const std::string name_;
  const std::function<void()> callback_;
  const std::unique_ptr<platform::Event> moved_;  ///< due_ was set or taken back while the thread runs.
  std::mutex mutex_;                              ///< Guards what follows; not held while the callback runs.
  std::optional<platform::SteadyTime> due_;       ///< Of the pending arming.
  bool closing_ = false;
  bool running_ = false;  ///< Whether thread_ still looks at due_.
  std::thread thread_;
};

}  // namespace TVK
