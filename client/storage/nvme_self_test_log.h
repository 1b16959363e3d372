// Decoder of NVMe's Device Self-test log (NVM Express Base Specification 2.0c, 5.16.1.7). Pure; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace TVK {

/// Codes of a self-test: 0 none, 1 short, 2 extended, 0xE the vendor's.
struct NvmeSelfTestResult {
  std::uint8_t code = 0;
  std::uint8_t result = 0;  ///< 0 passed, 1..9 how it ended.
  std::uint64_t power_on_hours = 0;

  bool operator==(const NvmeSelfTestResult&) const = default;
};

struct NvmeSelfTestLog {
  std::uint8_t running = 0;                  ///< The code of the one that runs; 0: none.
  std::uint8_t percent_complete = 0;         ///< Of that; 0 when none runs.
  std::optional<NvmeSelfTestResult> newest;  ///< Absent where none was ended yet.
};

/// Nothing for anything but 564 bytes.
std::optional<NvmeSelfTestLog> DecodeNvmeSelfTestLog(std::span<const std::uint8_t> page);

}  // namespace TVK
