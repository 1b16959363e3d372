// What a display says of itself: nothing outside the bytes is read, and what is told can be printed.
#include <algorithm>
#include <cstdlib>
#include <memory>

#include "client/display/edid.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Of their own, so that a byte behind them is found out.
  const auto copy = std::make_unique<std::uint8_t[]>(size);
  std::copy(data, data + size, copy.get());
  // Most inputs have another sum: it is made good, so that what lies behind the check is tried.
  if (size >= 128) {
    unsigned sum = 0;
    for (std::size_t i = 0; i < 127; ++i)
      sum += copy[i];
    copy[127] = static_cast<std::uint8_t>(-sum);
  }
  const auto facts = TVK::DecodeEdid({copy.get(), size});
  if (!facts) return 0;
  const auto printable = [](const std::string& text) {
    return text.size() <= 13 && std::ranges::all_of(text, [](char c) { return c >= 0x20 && c <= 0x7E; });
  };
  if (facts->maker.size() != 3 || !printable(facts->model) || !printable(facts->serial_number)) std::abort();
  if (facts->year && (*facts->year < 1990 || *facts->year > 2245)) std::abort();
  return 0;
}
