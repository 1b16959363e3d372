#include "platform/terminal.h"
#include "platform/windows/sys.h"

namespace platform {

std::optional<std::size_t> TerminalWidth() {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &info) == 0) return std::nullopt;
  return static_cast<std::size_t>(info.srWindow.Right - info.srWindow.Left + 1);
}

bool StandardErrorIsTerminal() {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

}  // namespace platform
