#include "client/storage/nvme_health.h"

#include <algorithm>
#include <cstddef>

#include "platform/little_endian.h"

namespace TVK {
namespace {

// NVM Express Base Specification 2.0c, 5.16.1.3, "SMART / Health Information Log Page".
constexpr std::size_t kSize = 512;
constexpr std::size_t kCriticalWarning = 0;
constexpr std::size_t kCompositeTemperature = 1;  // 2 bytes
constexpr std::size_t kAvailableSpare = 3;
constexpr std::size_t kAvailableSpareThreshold = 4;
constexpr std::size_t kPercentageUsed = 5;
// 16 bytes each
constexpr std::size_t kDataUnitsRead = 32;
constexpr std::size_t kDataUnitsWritten = 48;
constexpr std::size_t kHostReadCommands = 64;
constexpr std::size_t kHostWriteCommands = 80;
constexpr std::size_t kControllerBusyTime = 96;
constexpr std::size_t kPowerCycles = 112;
constexpr std::size_t kPowerOnHours = 128;
constexpr std::size_t kUnsafeShutdowns = 144;
constexpr std::size_t kMediaErrors = 160;
constexpr std::size_t kErrorLogEntries = 176;
// 4 bytes each
constexpr std::size_t kWarningTemperatureTime = 192;
constexpr std::size_t kCriticalTemperatureTime = 196;
// 2 bytes each
constexpr std::size_t kTemperatureSensors = 200;

/// The temperature at this place; nothing for 0 kelvins, which stand for one that is not measured.
std::optional<std::int32_t> CelsiusAt(std::span<const std::uint8_t> page, std::size_t at) {
  const auto kelvins = platform::LittleEndianAt<std::uint16_t>(page, at);
  return kelvins == 0 ? std::nullopt : std::optional(std::int32_t{kelvins} - 273);
}

Counter128 CounterAt(std::span<const std::uint8_t> page, std::size_t at) {
  return {.low = platform::LittleEndianAt<std::uint64_t>(page, at),
          .high = platform::LittleEndianAt<std::uint64_t>(page, at + 8)};
}

}  // namespace

std::wstring Counter128::Decimal() const {
  if (high == 0) return std::to_wstring(low);
  // Division by hand, 32 bits at a time: not every compiler has a type of 128 bits.
  std::array<std::uint64_t, 4> digits = {high >> 32, high & 0xFFFFFFFF, low >> 32, low & 0xFFFFFFFF};
  std::wstring text;
  while (std::ranges::any_of(digits, [](std::uint64_t digit) { return digit != 0; })) {
    std::uint64_t rest = 0;
    for (std::uint64_t& digit : digits) {
      const std::uint64_t number = rest << 32 | digit;
      digit = number / 10;
      rest = number % 10;
    }
    text += static_cast<wchar_t>(L'0' + rest);
  }
  std::ranges::reverse(text);
  return text;
}

std::optional<NvmeHealth> DecodeNvmeHealth(std::span<const std::uint8_t> page) {
  if (page.size() != kSize) return std::nullopt;
  NvmeHealth health{
      .critical_warning = page[kCriticalWarning],
      .temperature_c = CelsiusAt(page, kCompositeTemperature),
      .available_spare = page[kAvailableSpare],
      .available_spare_threshold = page[kAvailableSpareThreshold],
      .percentage_used = page[kPercentageUsed],
      .data_units_read = CounterAt(page, kDataUnitsRead),
      .data_units_written = CounterAt(page, kDataUnitsWritten),
      .host_read_commands = CounterAt(page, kHostReadCommands),
      .host_written_commands = CounterAt(page, kHostWriteCommands),
      .controller_busy_time = CounterAt(page, kControllerBusyTime),
      .power_cycles = CounterAt(page, kPowerCycles),
      .power_on_hours = CounterAt(page, kPowerOnHours),
      .unsafe_shutdowns = CounterAt(page, kUnsafeShutdowns),
      .media_errors = CounterAt(page, kMediaErrors),
      .error_log_entries = CounterAt(page, kErrorLogEntries),
      .warning_temperature_minutes = platform::LittleEndianAt<std::uint32_t>(page, kWarningTemperatureTime),
      .critical_temperature_minutes = platform::LittleEndianAt<std::uint32_t>(page, kCriticalTemperatureTime)};
  for (std::size_t i = 0; i < health.sensors_c.size(); ++i)
    health.sensors_c[i] = CelsiusAt(page, kTemperatureSensors + 2 * i);
  return health;
}

}  // namespace TVK
