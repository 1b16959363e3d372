// The kernel's own notices of power supplies, of drives, of sleep and of logins.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/linux/user_sessions.h"
#include "platform/system_event.h"

namespace platform {

struct DeviceNews {
  std::set<std::string> supplies = {};   ///< The names of the power supplies that it is about.
  std::vector<DriveChange> drives = {};  ///< In their order.
  bool lost = false;                     ///< There was more than the kernel keeps: some may be missing.
};

/// Descriptors that become readable when there is news, and what to do then. One thread at a time.
class KernelNotices {
 public:
  KernelNotices() = default;
  KernelNotices(const KernelNotices&) = delete;
  KernelNotices& operator=(const KernelNotices&) = delete;
  virtual ~KernelNotices() = default;

  /// Readable: something about a device may have changed. TakeDevices takes the notices and says what they are about.
  virtual int device_fd() const = 0;
  virtual DeviceNews TakeDevices() = 0;

  /// Readable: the machine woke up, or somebody set its clock. TakeClock takes the notice and says whether the machine
  /// slept since the last one.
  virtual int clock_fd() const = 0;
  virtual bool TakeClock() = 0;

  /// Readable: somebody logged on or off. Has an urgent condition (POLLPRI): another console is shown. Below 0 where
  /// the system has no such thing. TakeSessions takes both notices and tells the present sessions.
  virtual int login_fd() const = 0;
  virtual int console_fd() const = 0;
  virtual UserSessions TakeSessions() = 0;
};

/// Null when the system refuses; `problem` then says what.
///
/// Power supplies and drives: the kernel's messages about devices. Those of other devices wake the thread, too, which
/// drops them: the kernel sorts only what udevd passes on, and it need not run. Logins: changes of
/// /run/utmp (utmp(5)), and /sys/class/tty/tty0/active (the kernel's ABI document sysfs-tty says that it can be
/// polled). Sleep: a timer on the wall clock that the kernel cancels when that clock jumps (TFD_TIMER_CANCEL_ON_SET,
/// timerfd_create(2)). It jumps against the monotonic clock at each resume as it does when it is set; what
/// CLOCK_BOOTTIME counted and CLOCK_MONOTONIC did not tells the two apart. Sleep of less than 100 ms does not count.
std::unique_ptr<KernelNotices> OpenKernelNotices(std::string& problem);

}  // namespace platform
