// The kernel's own notices of power supplies and of sleep.
#pragma once

#include <memory>
#include <string>

namespace platform {

/// Two descriptors that become readable when there is news, and what to do then. One thread at a time.
class KernelNotices {
 public:
  KernelNotices() = default;
  KernelNotices(const KernelNotices&) = delete;
  KernelNotices& operator=(const KernelNotices&) = delete;
  virtual ~KernelNotices() = default;

  /// Readable: something about a power supply may have changed. TakePower takes the notice.
  virtual int power_fd() const = 0;
  virtual void TakePower() = 0;

  /// Readable: the machine woke up, or somebody set its clock. TakeClock takes the notice and says whether the machine
  /// slept since the last one.
  virtual int clock_fd() const = 0;
  virtual bool TakeClock() = 0;
};

/// Null when the system refuses; `problem` then says what.
///
/// Power supplies: udev's messages about them, which the kernel filters before anybody is woken. Sleep: a timer on the
/// wall clock that the kernel cancels when that clock jumps (TFD_TIMER_CANCEL_ON_SET, timerfd_create(2)). It jumps
/// against the monotonic clock at each resume as it does when it is set; what CLOCK_BOOTTIME counted and
/// CLOCK_MONOTONIC did not tells the two apart. Sleep of less than 100 ms does not count.
std::unique_ptr<KernelNotices> OpenKernelNotices(std::string& problem);

}  // namespace platform
