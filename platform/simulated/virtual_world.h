// The scheduler of the virtual runtime: who waits for what, what is due when, and when the clock may move.
//
// The clock moves only while somebody drives it: a thread inside AdvanceBy, or a thread that the world did not start
// and that waits in it. Things that are due at one instant happen one after the other, the next one once every thread
// waits again, in the order in which the threads were made.
#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "platform/simulated/virtual_runtime.h"

namespace platform {

struct VirtualWait;

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
  ElapsedTime Elapsed() const override;
  LocalTime ToLocal(std::int64_t unix_seconds) const override;
  std::int64_t FromLocal(const LocalTime& local) const override;

  /// The lock of everything in this world.
  std::unique_lock<std::mutex> Lock() const { return std::unique_lock(mutex_); }

  /// Ends waits on `signal`, the oldest first, as long as it is signalled. Under the lock.
  void Offer(VirtualSignal& signal);

  WaitCode Wait(const std::vector<VirtualSignal*>& signals, milliseconds timeout);
  WaitCode WaitUntil(const std::vector<VirtualSignal*>& signals, ElapsedTime deadline);
  std::thread StartThread(std::string_view name, std::function<void()> body);
  void Join(std::thread& thread);
  std::vector<VirtualThreadState> Threads() const;
  std::uint64_t WakeUps() const;
  void AdvanceBy(milliseconds duration);
  void Suspend(milliseconds duration);
  void RefuseThreads(bool refuse);

 private:
  friend struct VirtualWait;

  /// When by the waking clock, then the sequence of the thread that asked, then the order of asking. Deadlines of
  /// elapsed time move in it with every suspend; those that fell into one lie in the past then.
  using AgendaKey = std::tuple<SteadyTime, std::uint64_t, std::uint64_t>;
  using Agenda = std::map<AgendaKey, VirtualWait*>;
  using Drives = std::multiset<SteadyTime>;

  // All of these under the lock; those that take it release it while the thread sleeps.
  ElapsedTime ElapsedNow() const { return ElapsedTime(now_.time_since_epoch() + asleep_); }
  std::shared_ptr<VirtualThread> Find(std::thread::id id) const;
  WaitCode Block(std::unique_lock<std::mutex>& lock, const std::vector<VirtualSignal*>& signals, SteadyTime due,
                 bool counts_sleep);
  void MoveForward(VirtualWait& wait, std::chrono::nanoseconds by);
  void End(VirtualWait& wait, WaitCode result);
  bool Step();
  void StopRunning();
  void DriveUntil(std::unique_lock<std::mutex>& lock, const std::function<bool()>& reached);
  void EndThread(VirtualThread& thread);

  const VirtualRuntimeOptions options_;

  mutable std::mutex mutex_;         ///< Guards everything below and the objects of the world.
  std::condition_variable changed_;  ///< For drivers: all threads wait, or a driver's wait ended.
  SteadyTime now_;
  std::chrono::nanoseconds asleep_{0};  ///< In all suspends: elapsed time minus waking time.
  std::uint64_t next_sequence_ = 0;
  std::uint64_t next_asking_ = 0;
  std::uint64_t wake_ups_ = 0;
  std::size_t running_ = 0;  ///< Threads of the world that do not wait.
  bool refuses_threads_ = false;
  std::vector<std::shared_ptr<VirtualThread>> threads_;  ///< Those that have not ended, by age.
  Agenda agenda_;
  Drives drives_;  ///< How far each driver lets the clock go.
};

}  // namespace platform
