// The system's events from the kernel's notices.
#pragma once

#include <chrono>
#include <memory>

#include "platform/linux/kernel_notices.h"
#include "platform/linux/sysroot.h"
#include "platform/system_events.h"

namespace platform {

class PowerWishes;
class Runtime;

/// Starts a thread of `runtime` that waits for `notices`, and, while there are `wishes` and a battery is in use whose
/// driver is not known to send any, looks itself when there was none for `poll`. Batteries are looked at for wishes
/// alone, and so is all power; to each new wish the present source is told, and no percentage. It compares what the
/// supplies below `root` tell with what they told before; status and batteries come from one reading. `runtime` must
/// outlive the source. The percentage is told again when a battery comes, goes or is replaced and another one is there.
/// A sleep is told when it is over, as a suspend and a resume. Throws std::system_error when the system gives no thread
/// or descriptor.
std::unique_ptr<SystemEventSource> FollowKernelNotices(Runtime& runtime, std::unique_ptr<KernelNotices> notices,
                                                       const Sysroot& root, std::shared_ptr<PowerWishes> wishes,
                                                       SystemEventCallback callback,
                                                       std::chrono::milliseconds poll = std::chrono::minutes(1));

}  // namespace platform
