#include "platform/program_entry.h"
#include "platform/windows/sys.h"
#include "platform/windows/text.h"

#include <cstdio>
#include <exception>
#include <new>

#include <fcntl.h>
#include <io.h>

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
    static_cast<void>(std::fputs("there is not enough memory\n", stderr));
    return 3;
  } catch (const std::exception& failure) {
    static_cast<void>(std::fprintf(stderr, "%s\n", failure.what()));
    return 3;
  }
}
