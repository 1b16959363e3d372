// Waiting for changes of one key of the registry, wherever it comes and goes.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/windows/owner.h"

namespace platform::windows {

/// The calls of the system that a watch makes; a test plays another system. Any thread. Each returns 0 or the error.
class RegistryNotices {
 public:
  RegistryNotices() = default;
  RegistryNotices(const RegistryNotices&) = delete;
  RegistryNotices& operator=(const RegistryNotices&) = delete;
  virtual ~RegistryNotices() = default;

  virtual DWORD Open(HKEY root, const wchar_t* path, HKEY* key);
  /// Signals `signal` at the next change of the key itself, not of those below it, and when the key is closed.
  virtual DWORD Arm(HKEY key, DWORD what, HANDLE signal);
  virtual void Close(HKEY key);
};

/// Those of this machine.
RegistryNotices& LocalRegistryNotices();

/// Follows one key below a root, which need not exist: as long as it does not, the nearest key above it that does. A
/// root itself is never watched: opening a root's empty path gives back the predefined key, whose watch cannot be ended
/// and which every part of the process shares. While nothing can be watched (no part of a user's registry is loaded,
/// the system refuses) it tries again, each time after twice the pause, from `first_pause` to kLongestPause of waking
/// time. Any thread.
class RegistryWatch {
 public:
  static constexpr std::chrono::milliseconds kFirstPause = std::chrono::seconds(1);
  static constexpr std::chrono::milliseconds kLongestPause = std::chrono::minutes(5);

  /// Called on threads of the system's pool and on the one that calls Follow, without a lock of the watch. They must
  /// not block, not throw and not end the watch.
  struct Callbacks {
    /// The key may have changed, come or gone. What changes after the call is told again: it is armed before.
    std::function<void()> changed;
    /// It cannot be watched because of `error`; once, however many tries fail. 0: it is watched again.
    std::function<void(DWORD error)> trouble;
  };

  /// Throws std::system_error when the system gives no wait or timer. `notices` must outlive the object.
  RegistryWatch(RegistryNotices& notices, HKEY root, std::chrono::milliseconds first_pause, Callbacks callbacks);
  /// When it returns, no callback runs and none will.
  ~RegistryWatch();
  RegistryWatch(const RegistryWatch&) = delete;
  RegistryWatch& operator=(const RegistryWatch&) = delete;

  /// Follows the key `path` (not empty) in place of what it followed.
  void Follow(const std::wstring& path);

  /// Follows nothing. When it returns, no key is open.
  void Release();

 private:
  struct PoolWaitTraits : NullHandle<PTP_WAIT, CloseThreadpoolWait> {};
  struct PoolTimerTraits : NullHandle<PTP_TIMER, CloseThreadpoolTimer> {};
  struct KeyCloser {
    RegistryNotices* notices;
    void operator()(HKEY key) const { notices->Close(key); }
  };
  using OpenKey = std::unique_ptr<std::remove_pointer_t<HKEY>, KeyCloser>;

  static void CALLBACK OnSignal(PTP_CALLBACK_INSTANCE, void* watch, PTP_WAIT, TP_WAIT_RESULT);
  static void CALLBACK OnPauseOver(PTP_CALLBACK_INSTANCE, void* watch, PTP_TIMER);

  // These four need the lock.
  /// Arms, or plans the next try; what is to be told of it.
  std::optional<DWORD> Renew();
  DWORD Arm();
  DWORD ArmKey(const std::wstring& path, DWORD what, HANDLE signal, std::vector<OpenKey>& keys);
  void Drop();

  void Tell(std::optional<DWORD> trouble) const;
  void RenewAndTell();

  RegistryNotices& notices_;
  const HKEY root_;
  const std::chrono::milliseconds first_pause_;
  const Callbacks callbacks_;
  Owner<PoolWaitTraits> wait_;
  Owner<PoolTimerTraits> timer_;
  std::mutex mutex_;   ///< Guards what follows.
  std::wstring path_;  ///< Empty: nothing is followed.
  std::chrono::milliseconds pause_;
  bool failing_ = false;
  UniqueKernelHandle signal_;  ///< Of all of keys_. New with each arming, since closing a key signals its event.
  std::vector<OpenKey> keys_;  ///< The watched key, and the one above it, which tells when that one goes.
};

}  // namespace platform::windows
