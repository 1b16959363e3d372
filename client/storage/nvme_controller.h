// Decoder of NVMe's Identify Controller data (NVM Express Base Specification 2.0c, 5.17.2.1). Pure; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace TVK {

/// Texts as AtaIdentity has them.
struct NvmeIdentity {
  std::string serial_number;  ///< In clear: it leaves the client hashed only.
  std::string model;
  std::string firmware_version;
  bool self_test_supported = false;  ///< OACS bit 4.
};

/// Nothing for anything but 4096 bytes.
std::optional<NvmeIdentity> DecodeNvmeController(std::span<const std::uint8_t> data);

}  // namespace TVK
