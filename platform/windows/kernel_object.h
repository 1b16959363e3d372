// What the Windows runtime waits for: the kernel's own objects.
#pragma once

#include <utility>

#include "platform/waitable.h"
#include "platform/windows/owner.h"

namespace platform::windows {

/// What every waitable of the Windows runtime has; WaitAny asks for it.
class KernelObject {
 public:
  HANDLE handle() const { return handle_.get(); }

 protected:
  explicit KernelObject(UniqueKernelHandle handle) : handle_(std::move(handle)) {}
  ~KernelObject() = default;

 private:
  UniqueKernelHandle handle_;
};

class KernelEvent final : public Event, public KernelObject {
 public:
  explicit KernelEvent(UniqueKernelHandle handle) : KernelObject(std::move(handle)) {}
  void Set() override { SetEvent(handle()); }
  void Reset() override { ResetEvent(handle()); }
};

}  // namespace platform::windows
