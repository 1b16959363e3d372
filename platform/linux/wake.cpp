#include "platform/linux/wake.h"

#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <system_error>

#include "platform/standard_error.h"

namespace platform {

void WriteToWake(int fd, const void* data, std::size_t size) {
  constexpr int kTries = 1000;
  int error = 0;
  for (int i = 0; i < kTries; ++i) {
    if (::write(fd, data, size) >= 0) return;
    error = errno;
    if (error == EAGAIN) return;
    if (error != EINTR && error != ENOMEM) break;
    ::sched_yield();
  }
  WriteLineToStandardError({"a thread cannot be woken: ", std::system_category().message(error)});
}

void SignalEventFd(int fd) {
  const std::uint64_t one = 1;
  WriteToWake(fd, &one, sizeof one);
}

}  // namespace platform
