#include "platform/program_entry.h"
#include "platform/windows/sys.h"
#include "platform/windows/text.h"

#include <cstdio>
#include <exception>
#include <new>
#include <string_view>

#include <fcntl.h>
#include <io.h>

namespace {

int Fail(const wchar_t* program, const char* reason) {
  std::wstring_view name(program);
  name.remove_prefix(name.find_last_of(L"\\/") + 1);  // npos, where there is none, is the one before 0
  if (name.ends_with(L".exe")) name.remove_suffix(4);
  static_cast<void>(std::fprintf(stderr, "%.*ls: %s\n", static_cast<int>(name.size()), name.data(), reason));
  return 3;
}

}  // namespace

int wmain(int count, wchar_t** values) {
  SetConsoleOutputCP(CP_UTF8);
  // Records go out with plain line feeds: CSV and JSON say themselves how their lines end.
  _setmode(_fileno(stdout), _O_BINARY);
  try {
    std::vector<std::string> arguments;
    for (int i = 1; i < count; ++i)
      arguments.push_back(platform::windows::Utf8FromWide(values[i]));
    return ProgramMain(std::move(arguments));
  } catch (const std::bad_alloc&) {
    return Fail(values[0], "there is not enough memory");
  } catch (const std::exception& failure) {
    return Fail(values[0], failure.what());
  }
}
