// Calls that may never come back: a driver that hangs keeps the thread that asks it, and nothing can call it off.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "client/log/log.h"
#include "platform/runtime.h"

namespace TVK {

/// Runs calls one at a time, each on a thread of its own, for whom waits no longer than he wants to. Any thread.
class LimitedCalls {
 public:
  enum class Outcome {
    kDone,
    kTimedOut,  ///< It goes on; until it has come back no other call is begun.
    kBusy,      ///< Not begun: the one before has not come back, nor did within `limit`.
    kStopped,   ///< `stop` came first; the call goes on as with kTimedOut, if it was begun.
    kFailed,    ///< It threw, or the system gave no thread; logged.
  };

  /// `name`: of the threads, see Runtime::StartThread, and of exceptions that leave a call, which are logged in `log`.
  /// `runtime` must outlive the object.
  LimitedCalls(platform::Runtime& runtime, Log log, std::string name);
  /// A call that has not come back is left behind, with its thread. No thread may be in Run.
  ~LimitedCalls();
  LimitedCalls(const LimitedCalls&) = delete;
  LimitedCalls& operator=(const LimitedCalls&) = delete;

  /// `call` must own all that it touches: it may outlive everything. `limit`: of waking time, for its turn, for
  /// a call that was left behind, and for the call, each. `stop`: null, or what ends the waiting; its signal is
  /// consumed as by any wait. Throws std::system_error when the system gives no event.
  Outcome Run(std::function<void()> call, std::chrono::milliseconds limit, platform::Waitable* stop);

  /// Whether a call has not come back, one that was left behind or somebody else's.
  bool IsBusy();

 private:
  /// Of one call; its thread shares it.
  struct Progress {
    std::mutex mutex;                       ///< Guards what follows.
    std::unique_ptr<platform::Event> done;  ///< Null once nobody waits any more for it.
    bool returned = false;
    bool failed = false;  ///< It threw.
  };

  Outcome RunInTurn(std::function<void()> call, std::chrono::milliseconds limit, platform::Waitable* stop);

  platform::Runtime& runtime_;
  const Log log_;
  const std::string name_;
  const std::unique_ptr<platform::Semaphore> turn_;  ///< Whoever has it may touch what follows.
  std::shared_ptr<Progress> progress_;
  std::thread thread_;  ///< Of the last call while it has not come back.
};

}  // namespace TVK
