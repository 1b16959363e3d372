// ATA commands through a SCSI transport, as the kernel's ATA drivers and bridges take them (SCSI / ATA Translation,
// SAT-4, INCITS 491; sense data by SPC-5). Pure; any thread.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/ata_command.h"
#include "platform/drives.h"

namespace platform {

/// What the command moves, and what is wanted back.
enum class AtaTransfer {
  kNone,       ///< No data; the registers behind the command come back as sense data, where the bridge can do that.
  kOneSector,  ///< kAtaSectorSize bytes come in; registers come back only of a command that failed.
};

/// The command descriptor blocks ATA PASS-THROUGH (16) and (12) (SAT-4, 12.2). Bridges know one of them or both.
std::array<std::uint8_t, 16> AtaPassThrough16(const AtaRegisters& command, AtaTransfer transfer);
std::array<std::uint8_t, 12> AtaPassThrough12(const AtaRegisters& command, AtaTransfer transfer);

/// What sense data say.
struct SenseData {
  bool is_told = false;  ///< False: nothing is; the rest means nothing.
  std::uint8_t key = 0;
  std::uint8_t code = 0;       ///< Additional sense code,
  std::uint8_t qualifier = 0;  ///< and its qualifier.
  /// The registers behind the ATA command, when the data hold them.
  std::optional<AtaRegisters> registers = {};

  bool operator==(const SenseData&) const = default;
};

/// Of the bytes that came, which may be cut short. Nothing is told by what is of neither format, or of an earlier
/// command.
SenseData DecodeSense(std::span<const std::uint8_t> bytes);

/// What became of an ATA command.
struct AtaPassThroughOutcome {
  DriveAnswer answer = {};  ///< Without the sector; `error` of kFailed is the caller's to fill in.
  std::optional<AtaRegisters> registers = {};
  bool is_unknown_command = false;  ///< What was asked does not know this way of asking; the other one may help.
  bool has_other_news = false;      ///< The drive told of something else (a reset, a new medium), and did nothing.
};

/// `status` is the one that SCSI ended it with; 0 is good.
AtaPassThroughOutcome ReadAtaPassThrough(std::uint8_t status, const SenseData& sense);

}  // namespace platform
