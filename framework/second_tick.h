// The one wake-up a second that all checks of the process share.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>

#include "client/log/log.h"
#include "framework/timer_thread.h"
#include "platform/runtime.h"

namespace TVK {

/// Looks for all of its watchers once in a second of waking time, on one thread that runs only while there is a
/// watcher. A machine at rest is woken once for all of them; a watcher's own thread wakes only when its look found
/// something.
class SecondTick {
 public:
  /// What a look found to do.
  using Work = std::function<void()>;
  /// Looks, and returns what is to be done about it, or nothing. It must neither wait nor write: all looks share one
  /// thread, and one that the system holds up puts off the others'. It never keeps another watcher from leaving.
  using Look = std::function<Work()>;

  /// `runtime` must outlive the object.
  explicit SecondTick(platform::Runtime& runtime);
  /// Every Watch must have returned.
  ~SecondTick() = default;
  SecondTick(const SecondTick&) = delete;
  SecondTick& operator=(const SecondTick&) = delete;

  /// Until `stop` is signalled, which the wait consumes as any other: looks once a second, and runs the work that a
  /// look returns on the calling thread. While work runs there are no looks for this watcher; seconds that pass
  /// meanwhile are left out. Work that was found before the stop is done before the return. The first look is at once
  /// for the first watcher, and with the next tick for every other.
  ///
  /// `name` stands in the log line of an exception that leaves a look or a work; the watching goes on after it. False
  /// when the system gives no thread or event: the error is logged and the call returns at once. Any thread of the
  /// runtime but that of a look.
  bool Watch(const std::string& name, platform::Waitable& stop, const Look& look);

 private:
  struct Watcher;

  void Enter(const std::shared_ptr<Watcher>& watcher);
  void Leave(const std::shared_ptr<Watcher>& watcher);
  void Tick();

  platform::Runtime& runtime_;
  Log log_;
  std::mutex list_mutex_;  ///< Guards watchers_; never held while a look runs.
  std::list<std::shared_ptr<Watcher>> watchers_;
  std::mutex
      thread_mutex_;  ///< Guards what follows; never taken by the tick's thread, nor held while a look is waited for.
  int watcher_count_ = 0;                   ///< Those that entered and whose last look is not known to have ended.
  std::unique_ptr<PeriodicThread> thread_;  ///< Null without watchers.
};

}  // namespace TVK
