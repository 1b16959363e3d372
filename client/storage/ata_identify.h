// Decoder of ATA's IDENTIFY DEVICE data (ATA Command Set, ACS-4, IDENTIFY DEVICE: 256 words of two bytes, the lower one
// first). Pure; any thread.
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
  bool smart_supported = false;  ///< False, as the next two, where the words that would say it are not valid.
  bool smart_enabled = false;
  bool self_test_supported = false;  ///< Of SMART.
};

/// Whether the checksum in the 512 bytes is right, or there is none: a drive need not have one. False for another size.
bool IsAtaIdentifyIntact(std::span<const std::uint8_t> sector);

/// Nothing for bytes that are not intact, for data of a packet device (an optical drive); and
/// for data without a model, which every drive tells.
std::optional<AtaIdentity> DecodeAtaIdentify(std::span<const std::uint8_t> sector);

}  // namespace TVK
