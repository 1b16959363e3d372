#include "platform/windows/runtime_windows.h"

#include <algorithm>
#include <array>
#include <limits>
#include <stdexcept>
#include <system_error>

#include "platform/deadline.h"
#include "platform/local.h"
#include "platform/windows/kernel_object.h"
#include "platform/windows/security.h"
#include "platform/windows/text.h"

namespace platform {
namespace windows {
namespace {

class KernelSemaphore final : public Semaphore, public KernelObject {
 public:
  explicit KernelSemaphore(UniqueKernelHandle handle) : KernelObject(std::move(handle)) {}
  std::uint32_t Release(std::uint32_t count) override {
    // The call counts in LONG; it refuses 0 and what lies beyond, where the contract knows only "too many".
    if (count == 0) return 0;
    if (count > static_cast<std::uint32_t>(std::numeric_limits<LONG>::max())) return kErrorTooManyPosts;
    return ReleaseSemaphore(handle(), static_cast<LONG>(count), nullptr) ? 0 : GetLastError();
  }
};

// What a user of a named event needs: wait, set, reset. Not the right to change its access list.
constexpr DWORD kEventRights = SYNCHRONIZE | EVENT_MODIFY_STATE;

[[noreturn]] void ThrowLastError(const char* call) {
  throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), call);
}

NamedEventResult Result(HANDLE handle) {
  if (handle == nullptr) return {nullptr, GetLastError()};
  return {std::make_unique<KernelEvent>(UniqueKernelHandle(handle)), 0};
}

// No name would make a private event; one with a null inside would be cut short.
bool IsUsableName(std::wstring_view name) {
  return !name.empty() && name.find(L'\0') == std::wstring_view::npos;
}

// The system, the administrators and the own account hold every right; logged-on users wait and signal at most.
std::string AccessList(EventAccess access) {
  std::string list = "D:P(A;;GA;;;SY)(A;;GA;;;BA)";
  // The owner by name, since whoever makes the event again looks at it.
  if (const std::string own = ProcessUserSid(); !own.empty()) list = "O:" + own + list + "(A;;GA;;;" + own + ")";
  if (access == EventAccess::kSessionUsers) list += "(A;;0x100002;;;IU)";
  return list;
}
static_assert(kEventRights == 0x100002);
static_assert(kErrorForeignOwner == ERROR_INVALID_OWNER);

// The handles of one wait, with room for an alarm's.
class HandleSet {
 public:
  explicit HandleSet(std::span<Waitable* const> objects) {
    if (objects.size() > kMaximumWaitObjects) return;
    for (; count_ < objects.size(); ++count_) {
      const auto* const object = dynamic_cast<const KernelObject*>(objects[count_]);
      if (object == nullptr) return;
      handles_[count_] = object->handle();
    }
    usable_ = count_ > 0;
  }

  bool usable() const { return usable_; }

  WaitCode Wait(DWORD limit) const { return WaitForMultipleObjects(count_, handles_.data(), FALSE, limit); }

  // An alarm that goes off counts as a timeout.
  WaitCode Wait(DWORD limit, HANDLE alarm) {
    handles_[count_] = alarm;
    const WaitCode code = WaitForMultipleObjects(count_ + 1, handles_.data(), FALSE, limit);
    return code == count_ ? kWaitTimeout : code;
  }

 private:
  static_assert(kMaximumWaitObjects + 1 == MAXIMUM_WAIT_OBJECTS);
  std::array<HANDLE, kMaximumWaitObjects + 1> handles_;
  DWORD count_ = 0;
  bool usable_ = false;
};

// The kernel counts in milliseconds, and a wait may be longer than it takes in one call.
DWORD LimitOf(std::chrono::nanoseconds left) {
  constexpr milliseconds kLongest(INFINITE - 1);
  return static_cast<DWORD>(std::min(std::chrono::ceil<milliseconds>(left), kLongest).count());
}

// Looked up: Windows 10 1607 and Server 2016 have it here alone, and a program that imports it from kernel32 does not
// start there.
void NameThisThread(const std::wstring& name) {
  using Call = HRESULT(WINAPI*)(HANDLE thread, const wchar_t* description);
  static const auto call = reinterpret_cast<Call>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernelbase.dll"), "SetThreadDescription")));
  if (call != nullptr) call(GetCurrentThread(), name.c_str());  // a thread without a name works as well
}

}  // namespace

UniqueKernelHandle MakeAlarm(WallTime now, milliseconds left) {
  UniqueKernelHandle timer(CreateWaitableTimerW(nullptr, TRUE, nullptr));
  LARGE_INTEGER due;
  due.QuadPart = ToFileTime(now + left + kAlarmMargin).count();
  if (timer && !SetWaitableTimer(timer.get(), &due, 0, nullptr, nullptr, FALSE)) return UniqueKernelHandle();
  return timer;
}

std::unique_ptr<Event> WindowsRuntime::MakeEvent(EventReset reset, bool signalled) {
  UniqueKernelHandle handle(CreateEventW(nullptr, reset == EventReset::kManual, signalled, nullptr));
  if (!handle) ThrowLastError("CreateEvent");
  return std::make_unique<KernelEvent>(std::move(handle));
}

NamedEventResult WindowsRuntime::MakeNamedEvent(std::wstring_view name, EventReset reset, bool signalled,
                                                EventAccess access) {
  if (!IsUsableName(name)) return {nullptr, ERROR_INVALID_NAME};
  SecurityAttributes security(AccessList(access));
  if (!security.ok()) return {nullptr, GetLastError()};
  const DWORD flags =
      (reset == EventReset::kManual ? CREATE_EVENT_MANUAL_RESET : 0u) | (signalled ? CREATE_EVENT_INITIAL_SET : 0u);
  // With the right to ask for its owner: of one that exists already, ours would not be its access list, and whoever
  // made it could keep it signalled for ever.
  UniqueKernelHandle handle(
      CreateEventExW(security.get(), std::wstring(name).c_str(), flags, kEventRights | READ_CONTROL));
  const bool existed = GetLastError() == ERROR_ALREADY_EXISTS;
  if (handle && existed && !IsTrustedAccount(OwnerSid(handle.get()))) return {nullptr, kErrorForeignOwner};
  return Result(handle.Release());
}

NamedEventResult WindowsRuntime::OpenNamedEvent(std::wstring_view name) {
  if (!IsUsableName(name)) return {nullptr, ERROR_INVALID_NAME};
  return Result(OpenEventW(kEventRights, FALSE, std::wstring(name).c_str()));
}

std::unique_ptr<Semaphore> WindowsRuntime::MakeSemaphore(std::uint32_t initial, std::uint32_t maximum) {
  if (maximum == 0 || initial > maximum) throw std::invalid_argument("semaphore: 0 <= initial <= maximum, maximum > 0");
  constexpr std::uint32_t kMost = static_cast<std::uint32_t>(std::numeric_limits<LONG>::max());
  UniqueKernelHandle handle(CreateSemaphoreW(nullptr, static_cast<LONG>(std::min(initial, kMost)),
                                             static_cast<LONG>(std::min(maximum, kMost)), nullptr));
  if (!handle) ThrowLastError("CreateSemaphore");
  return std::make_unique<KernelSemaphore>(std::move(handle));
}

WaitCode WindowsRuntime::WaitAny(std::span<Waitable* const> objects, milliseconds timeout) {
  HandleSet set(objects);
  if (!set.usable()) return kWaitFailed;
  const SteadyTime deadline = DeadlineAfter(clock_.Steady(), timeout);
  if (deadline == SteadyTime::max()) return set.Wait(INFINITE);
  return WaitInTurns(
      deadline, [&] { return clock_.Steady(); },
      [&](std::chrono::nanoseconds left) { return set.Wait(LimitOf(left)); });
}

// Timeouts of waits stop while the machine sleeps, and so do timers with a relative due time. One with an absolute due
// time fires as the machine resumes, but by the wall clock, and that can be set. So both are waited for, and the clock
// that counts sleep and that nobody sets says whether it was time: a wall clock that was set forward ends a turn early,
// and the next turn plans anew; where it was set back, the timeout is there.
WaitCode WindowsRuntime::WaitAnyUntil(std::span<Waitable* const> objects, ElapsedTime deadline) {
  HandleSet set(objects);
  if (!set.usable()) return kWaitFailed;
  return WaitInTurns(
      deadline, [&] { return clock_.Elapsed(); },
      [&](std::chrono::nanoseconds left) {
        const DWORD limit = LimitOf(left);
        if (limit == 0) return set.Wait(0);
        const UniqueKernelHandle alarm = MakeAlarm(clock_.Now(), std::chrono::ceil<milliseconds>(left));
        return alarm ? set.Wait(limit, alarm.get()) : set.Wait(limit);
      });
}

std::thread WindowsRuntime::StartThread(std::string_view name, std::function<void()> body) {
  constexpr std::size_t kNameLength = 15;
  try {
    return std::thread([name = WideFromUtf8(name.substr(0, kNameLength)), body = std::move(body)]() noexcept {
      NameThisThread(name);
      body();
    });
  } catch (const std::system_error& failure) {
    throw std::system_error(failure.code(), "no thread " + std::string(name));
  }
}

void WindowsRuntime::Join(std::thread& thread) {
  if (thread.get_id() == std::this_thread::get_id()) {
    throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur), "Join");
  }
  thread.join();
}

}  // namespace windows

std::unique_ptr<Runtime> MakeRealRuntime(RealRuntimeOptions) {
  return std::make_unique<windows::WindowsRuntime>();
}

}  // namespace platform
