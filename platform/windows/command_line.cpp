#include "platform/windows/command_line.h"

namespace platform::windows {

std::wstring Quoted(std::wstring_view argument) {
  std::wstring result = L"\"";
  std::size_t backslashes = 0;
  for (const wchar_t unit : argument) {
    // Backslashes count as such unless a quote follows; then each needs another one, and the quote one more.
    if (unit == L'"') result.append(backslashes + 1, L'\\');
    backslashes = unit == L'\\' ? backslashes + 1 : 0;
    result += unit;
  }
  result.append(backslashes, L'\\');  // the closing quote follows
  return result + L'"';
}

std::wstring CommandLine(std::wstring_view program, const std::vector<std::wstring>& arguments) {
  std::wstring line = Quoted(program);
  for (const std::wstring& argument : arguments)
    line += L' ' + Quoted(argument);
  return line;
}

}  // namespace platform::windows
