// Decoder of NVMe's SMART / Health Information log (NVM Express Base Specification 2.0c, 5.16.1.3). Pure; any thread.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace TVK {

/// A counter of 128 bits.
struct Counter128 {
  std::uint64_t low = 0;
  std::uint64_t high = 0;

  std::wstring Decimal() const;
  bool operator==(const Counter128&) const = default;
};

struct NvmeHealth {
  std::uint8_t critical_warning = 0;  ///< Bits: spare, temperature, reliability, read-only, backup, memory region.
  std::optional<std::int32_t> temperature_c;  ///< The composite one, from kelvins; absent where it is 0.
  std::uint8_t available_spare = 0;           ///< Percent, as the next two.
  std::uint8_t available_spare_threshold = 0;
  std::uint8_t percentage_used = 0;  ///< May pass 100; 255 stands for more.
  Counter128 data_units_read;        ///< Of a thousand 512-byte units, as the next.
  Counter128 data_units_written;
  Counter128 host_read_commands;
  Counter128 host_written_commands;
  Counter128 controller_busy_time;  ///< Minutes.
  Counter128 power_cycles;
  Counter128 power_on_hours;
  Counter128 unsafe_shutdowns;
  Counter128 media_errors;
  Counter128 error_log_entries;
  std::uint32_t warning_temperature_minutes = 0;
  std::uint32_t critical_temperature_minutes = 0;
  std::array<std::optional<std::int32_t>, 8> sensors_c = {};  ///< Absent where the sensor reports 0.
};

/// Nothing for anything but 512 bytes.
std::optional<NvmeHealth> DecodeNvmeHealth(std::span<const std::uint8_t> page);

}  // namespace TVK
