#include <array>
#include <cstdio>

#include "platform/standard_error.h"

namespace platform {

void WriteLineToStandardError(std::initializer_list<std::string_view> parts) noexcept {
  std::array<char, 4096> line;
  std::size_t size = 0;
  for (const std::string_view part : parts)
    size += part.copy(line.data() + size, line.size() - 1 - size);
  line[size++] = '\n';
  static_cast<void>(std::fwrite(line.data(), 1, size, stderr));
}

}  // namespace platform
