// What a thread can wait for: events and semaphores. A runtime makes them; objects of one runtime are waited for with
// that runtime only.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace platform {

/// What a wait returns: the index of the object that ended it, or one of the two codes below. The numbers are those of
/// WaitForMultipleObjects (WAIT_OBJECT_0, WAIT_TIMEOUT, WAIT_FAILED), since log lines print them.
using WaitCode = std::uint32_t;
inline constexpr WaitCode kWaitTimeout = 258;
inline constexpr WaitCode kWaitFailed = 0xFFFFFFFF;

/// How many objects one wait takes at most: one less than MAXIMUM_WAIT_OBJECTS, since a wait that counts sleep adds a
/// timer of its own.
inline constexpr std::size_t kMaximumWaitObjects = 63;

/// A timeout that never comes.
inline constexpr std::chrono::milliseconds kForever = std::chrono::milliseconds::max();

/// How an event behaves once it was waited for.
enum class EventReset {
  kAuto,    ///< One satisfied wait consumes the signal.
  kManual,  ///< The signal stays until Reset().
};

/// Who may open a named event besides the service's own account and the administrators.
enum class EventAccess {
  kServiceOnly,   ///< Nobody.
  kSessionUsers,  ///< Every logged-on user may wait for it and signal it.
};

/// Base of everything that can be waited for. Owned by whoever made it; it must outlive every wait on it.
class Waitable {
 public:
  Waitable(const Waitable&) = delete;
  Waitable& operator=(const Waitable&) = delete;
  virtual ~Waitable() = default;

 protected:
  Waitable() = default;
};

/// A signal. Any thread may call it; setting a set event changes nothing.
class Event : public Waitable {
 public:
  virtual void Set() = 0;
  virtual void Reset() = 0;
};

/// A counter between 0 and its maximum; a satisfied wait takes one. Any thread may call it.
class Semaphore : public Waitable {
 public:
  /// Adds `count`. Returns 0, or the system's error when the maximum would be passed (ERROR_TOO_MANY_POSTS, 298, on
  /// every system); the count then stays as it was.
  virtual std::uint32_t Release(std::uint32_t count) = 0;
};

inline constexpr std::uint32_t kErrorTooManyPosts = 298;

}  // namespace platform
