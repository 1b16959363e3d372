// The virtual runtime: a world whose clock moves to the next deadline as soon as every thread in it waits.
//
// A whole service lives a day in it within seconds, the same way each time, on every system. All of its waitables lie
// under one lock; a waiter is marked runnable in the moment it is signalled, so the clock cannot move past work that is
// due. Threads that block on something else than the runtime (a mutex, a file) count as working: time stands still.
//
// Timeouts that end at one instant end one after the other, in the order in which their threads were made; the next one
// once every thread waits again. So only threads that are signalled together run at the same time.
//
// Suspend plays a machine that sleeps: the waking clock stands still, the elapsed one and the wall clock jump. Waits
// until a moment of elapsed time that fell into the sleep end at the resume, one after the other in the order of their
// moments; those for a time of waking go on with what was left.
//
// A thread that StartThread did not start (a test's own) may use everything too. While it waits in WaitAny, Wait or
// Join, it drives the clock as AdvanceBy does, up to its own deadline, so that stopping a service from a test cannot
// hang.
#pragma once

#include <memory>
#include <vector>

#include "platform/runtime.h"

namespace platform {

class VirtualWorld;

struct VirtualRuntimeOptions {
  WallTime start = WallTime(std::chrono::sys_days(std::chrono::year(2026) / 1 / 1));
  int utc_offset_minutes = 0;  ///< The zone of the world; it has no daylight saving.
};

/// How one thread of the world stands; for tests that count threads and look for a state.
struct VirtualThreadState {
  std::string name;
  bool waiting = false;
};

class VirtualRuntime final : public Runtime {
 public:
  explicit VirtualRuntime(VirtualRuntimeOptions options = {});
  /// Every thread that it started must have been joined, every object that it made be gone.
  ~VirtualRuntime() override;
  VirtualRuntime(const VirtualRuntime&) = delete;
  VirtualRuntime& operator=(const VirtualRuntime&) = delete;

  const Clock& clock() const override;
  std::unique_ptr<Event> MakeEvent(EventReset reset, bool signalled = false) override;
  NamedEventResult MakeNamedEvent(std::wstring_view name, EventReset reset, bool signalled,
                                  EventAccess access) override;
  NamedEventResult OpenNamedEvent(std::wstring_view name) override;
  std::unique_ptr<Semaphore> MakeSemaphore(std::uint32_t initial, std::uint32_t maximum) override;
  WaitCode WaitAny(std::span<Waitable* const> objects, milliseconds timeout) override;
  WaitCode WaitAnyUntil(std::span<Waitable* const> objects, ElapsedTime deadline) override;
  std::thread StartThread(std::string_view name, std::function<void()> body) override;
  void Join(std::thread& thread) override;

  /// Lets the world run until it has reached `duration` of waking time from now and everything due by then is done
  /// (every thread of the world waits for something later). The caller is not a thread of the world. Meant for the
  /// thread that owns the test; only between such calls does the clock stand still although all threads wait. Negative
  /// counts as zero. Throws std::logic_error when called on a thread of the world.
  void AdvanceBy(milliseconds duration);

  /// The machine sleeps for `duration` (negative counts as zero): what is due now is done before, and what fell due in
  /// the sleep when it returns. Caller and failure as AdvanceBy.
  void Suspend(milliseconds duration);

  /// While true, StartThread throws as where the system gives no thread. At first false.
  void RefuseThreads(bool refuse);

  /// AdvanceBy(0): returns when everything due now is done.
  void Settle();

  /// The threads that StartThread started and that have not ended.
  std::vector<VirtualThreadState> Threads() const;

  /// How many waits of its threads that really blocked have ended since the start of the world: what would be wake-ups
  /// on a real machine.
  std::uint64_t WakeUps() const;

 private:
  class NamedEvents;
  const std::unique_ptr<VirtualWorld> world_;
  const std::unique_ptr<NamedEvents> named_events_;  ///< Guarded by the world's lock.
};

}  // namespace platform
