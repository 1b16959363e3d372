#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/terminal.h"

namespace platform {

std::optional<std::size_t> TerminalWidth() {
  constexpr std::size_t kUntold = 80;  // a terminal on a serial line does not know how wide it is
  winsize size{};
  if (::isatty(STDOUT_FILENO) == 0) return std::nullopt;
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUntold;
  return size.ws_col;
}

bool StandardErrorIsTerminal() {
  return ::isatty(STDERR_FILENO) != 0;
}

}  // namespace platform
