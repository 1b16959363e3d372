// What a window's messages point to, which any process may send: nothing outside the bytes is read.
#include <algorithm>
#include <cstdlib>
#include <memory>

#include "platform/window_message.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto copy = std::make_unique<std::uint8_t[]>(size);
  std::copy(data, data + size, copy.get());
  const auto power = platform::DecodeDisplayPower({copy.get(), size});
  const auto medium = platform::DecodeMedium({copy.get(), size});
  if (power && std::holds_alternative<platform::Brightness>(*power) &&
      std::get<platform::Brightness>(*power).percent > 100) {
    std::abort();
  }
  if ((power && size < 24) || (medium && size < 18)) std::abort();
  return 0;
}
