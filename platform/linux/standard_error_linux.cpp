#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <string>

#include "platform/standard_error.h"

namespace platform {

void WriteLineToStandardError(std::string_view line) {
  pollfd ready = {.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
  // Another flag beside it tells of a pipe that nobody reads any more: writing there would raise a signal.
  if (::poll(&ready, 1, 0) != 1 || ready.revents != POLLOUT) return;
  // So much a pipe that is ready takes in one piece.
  std::string text(line.substr(0, PIPE_BUF - 1));
  text += '\n';
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
}

}  // namespace platform
