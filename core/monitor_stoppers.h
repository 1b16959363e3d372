// Stops monitors side by side, so that one that is busy in a sample keeps no other one running.
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <thread>

#include "client/log/log.h"
#include "platform/runtime.h"

namespace TVK {

/// One thread at a time: the handlers', and Stop's when no handler runs any more.
class MonitorStoppers {
 public:
  /// Both must outlive the object.
  MonitorStoppers(platform::Runtime& runtime, const Log& log) : runtime_(runtime), log_(log) {}

  /// Runs `stop` on a thread of its own; where the system gives none, here. When it ends after Wait has given it up,
  /// `ended_late` is called behind it.
  void Run(std::wstring_view dataset_name, const std::function<void()>& stop, const std::function<void()>& ended_late);

  /// Waits until all have ended, a second at most (what is late is logged and given up), or until `end` is signalled.
  void Wait(platform::Event* end);

  /// Waits for all.
  void JoinAll();

 private:
  struct Stopper {
    std::wstring dataset_name;
    std::shared_ptr<platform::Event> done;    ///< Manual-reset.
    std::shared_ptr<std::atomic<bool>> late;  ///< Nobody waits for it any more.
    std::thread thread;
  };

  platform::Runtime& runtime_;
  const Log& log_;
  std::list<Stopper> stoppers_;
};

}  // namespace TVK
