// The runtime: clock, waiting and threads of one process or of one simulated world.
//
// Nothing outside this folder sleeps, waits with a timeout or asks the time but through a Runtime. There are two kinds:
// the real one (MakeRealRuntime in local.h) and the virtual one (simulated/virtual_runtime.h), in which a day passes in
// the time that the work in it takes.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string_view>
#include <thread>

#include "platform/clock.h"
#include "platform/waitable.h"

namespace platform {

/// What making or opening a named event gave.
struct NamedEventResult {
  std::unique_ptr<Event> event;  ///< Null on failure.
  std::uint32_t error = 0;       ///< The system's error number (GetLastError, errno) when `event` is null.
};

/// Of a named event that an account made in whose hands it must not be (ERROR_INVALID_OWNER).
inline constexpr std::uint32_t kErrorForeignOwner = 1307;

class Runtime {
 public:
  Runtime() = default;
  Runtime(const Runtime&) = delete;
  Runtime& operator=(const Runtime&) = delete;
  /// Everything that the runtime made must be gone before.
  virtual ~Runtime() = default;

  virtual const Clock& clock() const = 0;

  /// This and the other makers throw std::system_error when the system gives no more objects.
  virtual std::unique_ptr<Event> MakeEvent(EventReset reset, bool signalled = false) = 0;

  /// Makes the event `name`, or opens it when any process has made it already (kind, state and access then stay as they
  /// are). Names that begin with "Global\" are meant for other processes too; they are the same on every system. Where
  /// others may make events of any name (Windows; on Linux in a folder that is open to them), one that exists is taken
  /// only from the system, the administrators, the running account and, on Linux, whom the folder belongs to; another
  /// one's is refused with kErrorForeignOwner.
  virtual NamedEventResult MakeNamedEvent(std::wstring_view name, EventReset reset, bool signalled,
                                          EventAccess access) = 0;

  /// Opens an event that some process made and still holds; fails when there is none or access is denied.
  virtual NamedEventResult OpenNamedEvent(std::wstring_view name) = 0;

  /// `initial` and `maximum` as CreateSemaphore takes them: 0 <= initial <= maximum, maximum > 0; throws
  /// std::invalid_argument otherwise.
  virtual std::unique_ptr<Semaphore> MakeSemaphore(std::uint32_t initial, std::uint32_t maximum) = 0;

  /// Waits until one of `objects` is signalled and consumes that one's signal. When several are, the lowest index wins.
  /// Returns the index, kWaitTimeout once `timeout` of waking time has passed (zero: only looks; kForever: never), or
  /// kWaitFailed when `objects` is empty, longer than kMaximumWaitObjects or holds a null pointer.
  virtual WaitCode WaitAny(std::span<Waitable* const> objects, milliseconds timeout) = 0;

  /// WaitAny until a moment of elapsed time: when that falls into a sleep, the wait ends as the machine resumes. The
  /// wait itself wakes no machine. Where the system has no timer left the wait counts waking time.
  virtual WaitCode WaitAnyUntil(std::span<Waitable* const> objects, ElapsedTime deadline) = 0;

  /// WaitAny for one object.
  WaitCode Wait(Waitable& object, milliseconds timeout) {
    Waitable* const one[] = {&object};
    return WaitAny(one, timeout);
  }

  /// Wait until a moment. Past ones: only looks.
  WaitCode WaitUntil(Waitable& object, SteadyTime deadline) {
    return Wait(object, std::chrono::ceil<milliseconds>(deadline - clock().Steady()));
  }
  WaitCode WaitUntil(Waitable& object, ElapsedTime deadline) {
    Waitable* const one[] = {&object};
    return WaitAnyUntil(one, deadline);
  }

  /// Starts a thread that runs `body`. `name` (ASCII, 15 characters are kept) is what debuggers and `top -H` show.
  /// An exception that leaves `body` ends the process; StartGuardedThread (client/log) logs it instead.
  /// Throws std::system_error, which names the thread, when the system gives none.
  virtual std::thread StartThread(std::string_view name, std::function<void()> body) = 0;

  /// Waits for the end of a thread that StartThread gave, and joins it. Throws std::system_error with
  /// resource_deadlock_would_occur when called on that thread itself.
  virtual void Join(std::thread& thread) = 0;
};

}  // namespace platform
