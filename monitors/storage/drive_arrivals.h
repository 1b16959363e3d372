// Tells a monitor that drives came or went, once they have settled.
#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include "client/log/log.h"
#include "framework/one_shot_timer.h"
#include "platform/runtime.h"

namespace platform {
struct SystemEvent;
}

namespace TVK {

/// Any thread.
class DriveArrivals {
 public:
  /// How long after the last news of a drive it is told: a drive is announced some times, before it can be asked, and
  /// before the system mounts what is on it.
  static constexpr std::chrono::seconds kSettling{3};

  /// From now on `look` is called on a thread of its own. `runtime` must outlive the object. False when the system
  /// gives no event; `log` is told.
  bool Follow(platform::Runtime& runtime, const Log& log, std::function<void()> look);
  /// Nothing before Follow and after End, and for events that are none of drives. Never waits. False when the system
  /// gives no thread: the look waits for the next event or Retry.
  bool OnSystemEvent(const platform::SystemEvent& event);
  /// Asks again for what OnSystemEvent was refused, if anything; as that.
  bool Retry();
  /// Waits for a call that runs; no other one comes. Not from `look`.
  void End();

 private:
  std::mutex mutex_;                     ///< Guards what follows.
  std::unique_ptr<OneShotTimer> timer_;  ///< Between Follow and End.
  bool ended_ = false;
};

}  // namespace TVK
