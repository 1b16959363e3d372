// The scheduler of the virtual runtime: who waits for what, what is due when, and when the clock may move.
//
// The clock moves only while somebody drives it: a thread inside AdvanceBy, or a thread that the world did not start
// and that waits in it. Things that are due at one instant happen one after the other, the next one once every thread
// waits again, in the order in which the threads and timers that they belong to were made.
#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <variant>
#include <vector>

#include "platform/simulated/virtual_runtime.h"

namespace platform {

struct VirtualWait;
struct VirtualTimerState;

/// What a wait can end on. Guarded by the world's lock.
struct VirtualSignal {
  VirtualSignal() = default;
  VirtualSignal(const VirtualSignal&) = delete;
  VirtualSignal& operator=(const VirtualSignal&) = delete;
  virtual ~VirtualSignal() = default;

  /// Whether it is signalled; takes what one satisfied wait takes.
  virtual bool TryConsume() = 0;

  std::vector<VirtualWait*> waits;  ///< Oldest first.
};

/// A thread of the world; its signal is its end. Guarded by the world's lock.
struct VirtualThread final : VirtualSignal {
  bool TryConsume() override { return ended; }

  std::string name;
  std::thread::id id;
  std::uint64_t sequence = 0;
  bool waiting = false;
  bool ended = false;
};

class VirtualWorld final : public Clock {
 public:
  explicit VirtualWorld(const VirtualRuntimeOptions& options) : options_(options) {}

  WallTime Now() const override;
  SteadyTime Steady() const override;
  LocalTime ToLocal(std::int64_t unix_seconds) const override;
  std::int64_t FromLocal(const LocalTime& local) const override;

  /// The lock of everything in this world.
  std::unique_lock<std::mutex> Lock() const { return std::unique_lock(mutex_); }

  /// Ends waits on `signal`, the oldest first, as long as it is signalled. Under the lock.
  void Offer(VirtualSignal& signal);

  WaitCode Wait(const std::vector<VirtualSignal*>& signals, milliseconds timeout);
  std::thread StartThread(std::string_view name, std::function<void()> body);
  void Join(std::thread& thread);
  std::vector<VirtualThreadState> Threads() const;
  std::uint64_t WakeUps() const;
  void AdvanceBy(milliseconds duration);

  std::shared_ptr<VirtualTimerState> MakeTimer(std::function<void()> callback);
  void Arm(const std::shared_ptr<VirtualTimerState>& timer, milliseconds delay);
  void Disarm(VirtualTimerState& timer);

 private:
  friend struct VirtualWait;
  friend struct VirtualTimerState;

  /// When, then the sequence of the thread or timer that asked, then the order of asking.
  using AgendaKey = std::tuple<SteadyTime, std::uint64_t, std::uint64_t>;
  using Agenda = std::map<AgendaKey, std::variant<VirtualWait*, std::shared_ptr<VirtualTimerState>>>;
  using Drives = std::multiset<SteadyTime>;
  enum class Caller { kDriver, kThreadOfTheWorld };

  // All of these under the lock; those that take it release it while a callback runs or the thread sleeps.
  std::shared_ptr<VirtualThread> Find(std::thread::id id) const;
  Agenda::iterator Schedule(SteadyTime time, std::uint64_t sequence, Agenda::mapped_type what);
  void End(VirtualWait& wait, WaitCode result);
  bool Step(std::unique_lock<std::mutex>& lock, Caller caller);
  void StopRunning(std::unique_lock<std::mutex>& lock);
  void DriveUntil(std::unique_lock<std::mutex>& lock, const std::function<bool()>& reached);
  void RunCallback(std::unique_lock<std::mutex>& lock, const std::shared_ptr<VirtualTimerState>& timer);
  void EndThread(VirtualThread& thread);

  const VirtualRuntimeOptions options_;

  mutable std::mutex mutex_;         ///< Guards everything below and the objects of the world.
  std::condition_variable changed_;  ///< Drivers and Disarm: all threads wait, a driver's wait or a callback ended.
  SteadyTime now_{0};
  std::uint64_t next_sequence_ = 0;
  std::uint64_t next_asking_ = 0;
  std::uint64_t wake_ups_ = 0;
  std::size_t running_ = 0;  ///< Threads of the world that do not wait, and callbacks under way.
  std::vector<std::shared_ptr<VirtualThread>> threads_;  ///< Those that have not ended, by age.
  Agenda agenda_;
  Drives drives_;  ///< How far each driver lets the clock go.
};

}  // namespace platform
