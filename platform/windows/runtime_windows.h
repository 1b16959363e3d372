// The real runtime over the kernel's own events, semaphores and waits.
#pragma once

#include "platform/runtime.h"
#include "platform/windows/clock_windows.h"
#include "platform/windows/owner.h"

namespace platform::windows {

/// A timer that is signalled `left` and kAlarmMargin after the wall clock's `now`, by the wall clock, time asleep
/// counted. Nothing when the system gives none.
UniqueKernelHandle MakeAlarm(WallTime now, milliseconds left);

class WindowsRuntime final : public Runtime {
 public:
  const Clock& clock() const override { return clock_; }
  std::unique_ptr<Event> MakeEvent(EventReset reset, bool signalled) override;
  NamedEventResult MakeNamedEvent(std::wstring_view name, EventReset reset, bool signalled,
                                  EventAccess access) override;
  NamedEventResult OpenNamedEvent(std::wstring_view name) override;
  std::unique_ptr<Semaphore> MakeSemaphore(std::uint32_t initial, std::uint32_t maximum) override;
  WaitCode WaitAny(std::span<Waitable* const> objects, milliseconds timeout) override;
  WaitCode WaitAnyUntil(std::span<Waitable* const> objects, ElapsedTime deadline) override;
  std::thread StartThread(std::string_view name, std::function<void()> body) override;
  void Join(std::thread& thread) override;

 private:
  const WindowsClock clock_;
};

}  // namespace platform::windows
