// A battery driver that answers anything: nothing outside the bytes is read, the questions end, and what is told of the
// battery is in range. Each answer: an error's number and a size, a byte each, and its bytes.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "platform/battery_class.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace platform;
  std::span<const std::uint8_t> rest(data, size);
  constexpr std::uint32_t kErrors[] = {0, 0, 0, 0, 1, 2, 433, 1167};
  int questions = 0;
  const auto facts = ReadBattery([&](std::uint32_t, std::span<const std::uint8_t>, std::size_t most) -> DriverAnswer {
    if (++questions > 18) std::abort();
    if (rest.size() < 2) return {1};
    const std::uint32_t error = kErrors[rest[0] % 8];
    const std::size_t given = std::min<std::size_t>({rest[1], most, rest.size() - 2});
    const auto answer = rest.subspan(2, given);
    rest = rest.subspan(2 + given);
    if (error != 0) return {error};
    return {0, {answer.begin(), answer.end()}};
  });
  if (facts) {
    if (facts->percent > 100u || facts->cycles == 0u || facts->full_mwh == 0u) std::abort();
    if (facts->manufactured && !facts->manufactured->ok()) std::abort();
    if (facts->remaining_time && *facts->remaining_time < std::chrono::seconds(0)) std::abort();
  }
  const std::string text(data, data + size);
  const std::string paths[] = {text, text, "acpi#" + text};
  const auto slots = BatterySlots(paths);
  if (slots[0].empty() || slots[0] == slots[1] || slots[1] == slots[2] || slots[0] == slots[2]) std::abort();
  return 0;
}
