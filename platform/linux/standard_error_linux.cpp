#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <array>

#include "platform/standard_error.h"

namespace platform {

void WriteLineToStandardError(std::initializer_list<std::string_view> parts) noexcept {
  pollfd ready = {.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
  // Another flag beside it tells of a pipe that nobody reads any more: writing there would raise a signal.
  if (::poll(&ready, 1, 0) != 1 || ready.revents != POLLOUT) return;
  // So much a pipe that is ready takes in one piece.
  std::array<char, PIPE_BUF> line;
  std::size_t size = 0;
  for (const std::string_view part : parts)
    size += part.copy(line.data() + size, line.size() - 1 - size);
  line[size++] = '\n';
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line.data(), size);
}

}  // namespace platform
