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
  struct Progress;

 public:
  enum class Outcome {
    kDone,
    kTimedOut,  ///< It goes on; until it has come back no other call is begun.
    kBusy,      ///< Not begun: the one before has not come back, nor did within the limit.
    kStopped,   ///< `stop` came first; the call goes on as with kTimedOut, if it was begun.
    kFailed,    ///< It threw, or the system gave no thread or event; logged.
  };

  /// A call that was handed over, for the one who waits for it. Not beyond the object that it was handed to.
  class Call {
   public:
    /// Waits until it has come back; one that had no turn yet is begun when it has. Once. `stop`: null, or what ends
    /// the waiting; its signal is consumed as by any wait.
    Outcome Await(platform::Waitable* stop);

   private:
    friend class LimitedCalls;
    Call(LimitedCalls& calls, std::function<void()> work, std::chrono::milliseconds limit);

    LimitedCalls* calls_;
    std::function<void()> work_;  ///< Until it is begun.
    std::chrono::milliseconds limit_;
    platform::SteadyTime deadline_;       ///< Of its turn; when it is begun, of its end.
    std::shared_ptr<Progress> progress_;  ///< Once it is begun.
    bool failed_ = false;                 ///< It could not be begun.
  };

  /// `name`: of the threads, see Runtime::StartThread, and of exceptions that leave a call, which are logged in `log`.
  /// `runtime` must outlive the object.
  LimitedCalls(platform::Runtime& runtime, Log log, std::string name);
  /// A call that has not come back is left behind, with its thread. No thread may be in Await.
  ~LimitedCalls();
  LimitedCalls(const LimitedCalls&) = delete;
  LimitedCalls& operator=(const LimitedCalls&) = delete;

  /// Begins a call, unless the one before has not come back: then Await begins it. Never waits, so that the calls of
  /// several objects can be begun before the first is waited for. `work` must own all that it touches: it may outlive
  /// everything. `limit`: of waking time, for its turn, and from its beginning for its end.
  Call Begin(std::function<void()> work, std::chrono::milliseconds limit);

  /// Whether a call has not come back, one that was left behind or somebody else's.
  bool IsBusy();

 private:
  /// Of one call; its thread shares it.
  struct Progress {
    std::unique_ptr<platform::Event> done;  ///< Null once nobody waits any more for it.
    std::mutex mutex;                       ///< Guards what follows, and `done` once the call is begun.
    bool returned = false;
    bool failed = false;  ///< It threw.
  };

  static bool HasReturned(Progress& progress);
  /// Null when `call` was begun, or cannot be; else the call that is on its way.
  std::shared_ptr<Progress> TryBegin(Call& call);
  std::thread Start(std::function<void()> work, std::shared_ptr<Progress> progress);
  /// The end of a call that has come back.
  void Collect(const std::shared_ptr<Progress>& progress);
  Outcome Wait(platform::Waitable& object, platform::SteadyTime deadline, platform::Waitable* stop);

  platform::Runtime& runtime_;
  const Log log_;
  const std::string name_;
  std::mutex mutex_;  ///< Guards what follows; held for a look, and for the end of a thread that is through.
  std::shared_ptr<Progress> progress_;  ///< Of the last call, until it is collected.
  std::thread thread_;                  ///< The same.
};

}  // namespace TVK
