// Owners of the system's handles: move-only, closed once, a type of its own for each kind.
#pragma once

#include "platform/windows/sys.h"

#include <bcrypt.h>
#include <pdh.h>
#include <winevt.h>
#include <winsvc.h>

#include <utility>

namespace platform::windows {

/// Owns one handle. `Traits` says the handle's type, the value that means "none" and how to close it.
template <class Traits>
class Owner {
 public:
  using Handle = typename Traits::Handle;

  Owner() = default;
  explicit Owner(Handle handle) : handle_(handle) {}
  Owner(Owner&& other) noexcept : handle_(other.Release()) {}
  Owner& operator=(Owner&& other) noexcept {
    if (this != &other) Reset(other.Release());
    return *this;
  }
  ~Owner() { Reset(); }

  explicit operator bool() const { return handle_ != Traits::None(); }
  Handle get() const { return handle_; }

  /// Closes what is held and holds `handle` instead.
  void Reset(Handle handle = Traits::None()) {
    const Handle old = std::exchange(handle_, handle);
    if (old != Traits::None()) Traits::Close(old);
  }

  /// For functions that give a handle through a pointer; closes what was held before.
  Handle* Receive() {
    Reset();
    return &handle_;
  }

  /// Gives the handle away; the caller closes it.
  Handle Release() { return std::exchange(handle_, Traits::None()); }

 private:
  Handle handle_ = Traits::None();
};

/// Traits of a handle type whose "none" is null.
template <class HandleType, auto kClose>
struct NullHandle {
  using Handle = HandleType;
  static Handle None() { return nullptr; }
  static void Close(Handle handle) { kClose(handle); }
};

struct KernelTraits : NullHandle<HANDLE, CloseHandle> {};
struct FileTraits {
  using Handle = HANDLE;
  static Handle None() { return INVALID_HANDLE_VALUE; }
  static void Close(Handle handle) { CloseHandle(handle); }
};
struct RegistryKeyTraits : NullHandle<HKEY, RegCloseKey> {};
struct ServiceTraits : NullHandle<SC_HANDLE, CloseServiceHandle> {};
struct LocalMemoryTraits : NullHandle<void*, LocalFree> {};
struct PdhQueryTraits : NullHandle<PDH_HQUERY, PdhCloseQuery> {};
struct EventLogTraits : NullHandle<EVT_HANDLE, EvtClose> {};
struct DeviceNoticesTraits : NullHandle<HDEVNOTIFY, UnregisterDeviceNotification> {};
struct HashTraits : NullHandle<BCRYPT_HASH_HANDLE, BCryptDestroyHash> {};
struct AlgorithmTraits {
  using Handle = BCRYPT_ALG_HANDLE;
  static Handle None() { return nullptr; }
  static void Close(Handle handle) { BCryptCloseAlgorithmProvider(handle, 0); }
};

using UniqueKernelHandle = Owner<KernelTraits>;  ///< Events, semaphores, processes, threads, tokens.
using UniqueFile = Owner<FileTraits>;            ///< Files and folders, which CreateFile opened.
using UniqueRegistryKey = Owner<RegistryKeyTraits>;
using UniqueService = Owner<ServiceTraits>;  ///< The service manager and its services.
using UniqueLocalMemory = Owner<LocalMemoryTraits>;
using UniquePdhQuery = Owner<PdhQueryTraits>;            ///< Its counters are closed with it.
using UniqueEventLogHandle = Owner<EventLogTraits>;      ///< Queries, render contexts and events of the event log.
using UniqueDeviceNotices = Owner<DeviceNoticesTraits>;  ///< A registration for news of devices.
using UniqueHash = Owner<HashTraits>;
using UniqueAlgorithm = Owner<AlgorithmTraits>;

}  // namespace platform::windows
