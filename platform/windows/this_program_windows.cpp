#include "platform/this_program.h"
#include "platform/windows/sys.h"

#include <string>

std::filesystem::path platform::ThisProgram() {
  std::wstring path(32768, L'\0');  // the longest that the system has
  path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return path;
}

void platform::CallAtExit(void (* /*function*/)()) {}
