#include <cstdio>
#include <string>

#include "platform/standard_error.h"

namespace platform {

void WriteLineToStandardError(std::string_view line) {
  constexpr std::size_t kLongest = 4095;
  std::string text(line.substr(0, kLongest));
  text += '\n';
  static_cast<void>(std::fwrite(text.data(), 1, text.size(), stderr));
}

}  // namespace platform
