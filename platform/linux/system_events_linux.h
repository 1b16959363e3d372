// The system's events from the kernel's notices.
#pragma once

#include <memory>

#include "platform/linux/kernel_notices.h"
#include "platform/system_events.h"

namespace platform {

class Power;
class Runtime;

/// Starts a thread of `runtime` that waits for `notices`, and for nothing else, and compares what `power` tells with
/// what it told before. Both must outlive the source. A sleep is told when it is over, as a suspend and a resume.
/// Throws std::system_error when the system gives no thread or descriptor.
std::unique_ptr<SystemEventSource> FollowKernelNotices(Runtime& runtime, std::unique_ptr<KernelNotices> notices,
                                                       Power& power, SystemEventCallback callback);

}  // namespace platform
