// Decoder of ATA's SMART self-test log (ACS-4, "SMART Self-Test log", log 06h of SMART READ LOG). Pure; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "client/storage/ata_smart.h"

namespace TVK {

/// The newest entry.
struct AtaSelfTestEntry {
  std::uint8_t subcommand = 0;  ///< Which test: 1 short, 2 extended, ... (ACS-4, SMART EXECUTE OFF-LINE IMMEDIATE).
  AtaSelfTestStatus status;
  std::uint16_t power_on_hours = 0;          ///< The lower 16 bits of the drive's age at its end.
  std::optional<std::uint64_t> failing_lba;  ///< Of a test that failed to read (code 7), where 32 bits hold it.
  std::uint8_t index = 0;                    ///< Of the entry in the log, 1 to 21: the next test takes the next one.

  bool operator==(const AtaSelfTestEntry&) const = default;
};

struct AtaSelfTestLog {
  std::optional<AtaSelfTestEntry> newest;  ///< Absent where no test was ended yet.

  bool operator==(const AtaSelfTestLog&) const = default;
};

/// Nothing for a sector of another size than 512 bytes, with a wrong checksum, or with an index of no entry.
std::optional<AtaSelfTestLog> DecodeAtaSelfTestLog(std::span<const std::uint8_t> sector);

}  // namespace TVK
