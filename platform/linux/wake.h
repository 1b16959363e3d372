// Writing to a descriptor for whose reader the write itself is the news.
#pragma once

#include <cstddef>

namespace platform {

/// Writes `size` bytes (a FIFO takes so few as a whole; of an eventfd, 8) so that the descriptor is readable
/// afterwards. One that is full is so already. Where the system has no memory for it just now it is tried again for a
/// while; what cannot be done at all is told on standard error: somebody sleeps on. Any thread.
void WriteToWake(int fd, const void* data, std::size_t size);

/// The same for an eventfd: counts it up by one.
void SignalEventFd(int fd);

}  // namespace platform
