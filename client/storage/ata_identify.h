// Decoder of ATA's IDENTIFY DEVICE data (ACS-4, 7.13.6; words of two bytes, the lower first). Pure; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace TVK {

/// What a drive says of itself. Texts are ASCII, their ends without blanks, in the order in which people read them;
/// bytes that are no printable ASCII stand as blanks.
struct AtaIdentity {
  std::string serial_number;  ///< In clear: it leaves the client hashed only.
  std::string firmware_version;
  std::string model;
  std::optional<bool> rotating;  ///< From the nominal rotation rate; absent where the drive does not tell it.
  bool smart_supported = false;  ///< And words 82 to 87 say that they hold something.
  bool smart_enabled = false;
  bool self_test_supported = false;  ///< Of SMART.
};

/// Nothing for fewer than 512 bytes; for bytes that carry a checksum that is wrong (word 255), which a drive does not
/// need to have; and for data of a packet device (an optical drive).
std::optional<AtaIdentity> DecodeAtaIdentify(std::span<const std::uint8_t> sector);

}  // namespace TVK
