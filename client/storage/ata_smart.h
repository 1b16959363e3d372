// Decoder of the two sectors in which ATA drives tell of their health: SMART READ DATA (ACS-4, 7.48.6; the attributes
// in it by ATA/ATAPI-5 annex, since the vendors' part of the later standards keeps that form) and SMART READ THRESHOLDS
// (ATA/ATAPI-5, 8.41.5). Pure; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace TVK {

struct AtaAttribute {
  std::uint8_t id = 0;  ///< 1..255.
  std::uint8_t normalized = 0;
  std::uint8_t worst = 0;
  std::uint64_t raw = 0;                  ///< 48 bits.
  std::optional<std::uint8_t> threshold;  ///< Absent where no thresholds were read or they do not hold the id.

  bool operator==(const AtaAttribute&) const = default;
};

/// What a SMART self-test is doing, or came to (the self-test execution status byte: ACS-4, table 147).
struct AtaSelfTestStatus {
  std::uint8_t code = 0;              ///< 0 = passed or none was run yet; 1..8 how it ended; 15 = it runs.
  std::uint8_t tenths_remaining = 0;  ///< Of one that runs.

  bool operator==(const AtaSelfTestStatus&) const = default;
};

inline constexpr std::uint8_t kAtaSelfTestRuns = 15;

struct AtaSmart {
  std::vector<AtaAttribute> attributes;  ///< In the order of the sector; entries without an id are left out.
  AtaSelfTestStatus self_test;
  bool self_test_supported = false;     ///< SMART EXECUTE OFF-LINE IMMEDIATE with its self-tests.
  std::uint8_t short_test_minutes = 0;  ///< The drive's own estimate; 0: none.
};

/// Whether the 512 bytes of a SMART sector sum up to zero, as both standards have it.
bool HasAtaChecksum(std::span<const std::uint8_t> sector);

/// Nothing for sectors of another size than 512 bytes or with a wrong checksum. Without thresholds `thresholds` is
/// empty; thresholds that are damaged count as none.
std::optional<AtaSmart> DecodeAtaSmart(std::span<const std::uint8_t> values, std::span<const std::uint8_t> thresholds);

}  // namespace TVK
