// What the pages and actions of NVMe drives are on the wire (NVM Express Base Specification 2.0c, chapter 5). Each
// system packs them in its own way. Pure; any thread.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/drives.h"

namespace platform {

/// An admin command; the fields that are not here are 0.
struct NvmeCommand {
  std::uint8_t opcode = 0;
  std::uint32_t namespace_id = 0;
  std::uint32_t dword10 = 0;
  std::uint32_t bytes = 0;  ///< That come in.

  bool operator==(const NvmeCommand&) const = default;
};

/// Nothing for what is none of NVMe's.
std::optional<NvmeCommand> NvmeCommandOf(DrivePage page);
std::optional<NvmeCommand> NvmeCommandOf(DriveAction action);

/// What a status field (without phase bit: bits 14..0; do-not-retry and more are not looked at) says of the command:
/// kDone; kNotSupported for an opcode, a field or a log page that the drive does not have; kRefused otherwise.
DriveAnswer NvmeOutcome(std::uint32_t status);

}  // namespace platform
