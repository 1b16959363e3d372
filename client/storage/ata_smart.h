// Decoder of the two sectors in which ATA drives tell of their health. What SMART READ DATA gives is laid out by the
// ATA Command Set (ACS-4, "Device SMART data structure") but for its first 362 bytes, which the standard leaves to the
// vendors, and which hold the attributes in the form that SFF-8035i (revision 2.0) gave them; so does what SMART READ
// THRESHOLDS gives, a command that the standard no longer names. Pure; any thread.
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

/// What a SMART self-test is doing, or came to (ACS-4, "Self-test execution status").
struct AtaSelfTestStatus {
  std::uint8_t code = 0;              ///< 0 = passed or none was run yet; 1..8 how it ended; 15 = it runs.
  std::uint8_t tenths_remaining = 0;  ///< Of one that runs.

  bool operator==(const AtaSelfTestStatus&) const = default;
};

inline constexpr std::uint8_t kAtaSelfTestRuns = 15;

/// Of the status byte, which the self-test log holds as well.
AtaSelfTestStatus DecodeAtaSelfTestStatus(std::uint8_t status);

struct AtaSmart {
  std::vector<AtaAttribute> attributes;  ///< In the order of the sector; entries without an id are left out.
  AtaSelfTestStatus self_test;
  bool self_test_supported = false;     ///< SMART EXECUTE OFF-LINE IMMEDIATE with its self-tests.
  std::uint8_t short_test_minutes = 0;  ///< The drive's own estimate; 0: none.
};

/// Whether the 512 bytes of a SMART sector sum up to zero, as all these sectors have it. False for another size.
bool HasAtaChecksum(std::span<const std::uint8_t> sector);

/// Nothing for values of another size than 512 bytes or with a wrong checksum. Without thresholds `thresholds` is
/// empty; thresholds that are damaged count as none. They are joined with the attributes by id: not every drive has
/// both in one order. Of several thresholds for one id the first counts.
std::optional<AtaSmart> DecodeAtaSmart(std::span<const std::uint8_t> values, std::span<const std::uint8_t> thresholds);

}  // namespace TVK
