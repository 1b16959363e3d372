// What the pages and actions of ATA drives are on the wire: the registers of their commands (ATA/ATAPI Command Set,
// ACS-4, T13/BSR INCITS 529; SMART READ THRESHOLDS by ATA/ATAPI-5). Each system packs them in its own way. Pure; any
// thread.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/drives.h"

namespace platform {

/// The registers of a 28-bit command, and of what comes back.
struct AtaRegisters {
  std::uint8_t features = 0;  ///< Of what comes back: the error register.
  std::uint8_t count = 0;
  std::uint8_t lba_low = 0;
  std::uint8_t lba_middle = 0;
  std::uint8_t lba_high = 0;
  std::uint8_t device = 0;
  std::uint8_t command = 0;  ///< Of what comes back: the status register.

  bool operator==(const AtaRegisters&) const = default;
};

/// Of each page and of no other command: one sector comes in.
inline constexpr std::size_t kAtaSectorSize = 512;

/// Nothing for what is none of ATA's.
std::optional<AtaRegisters> AtaCommandOf(DrivePage page);
std::optional<AtaRegisters> AtaCommandOf(DriveAction action);

/// CHECK POWER MODE (7.3), which wakes no drive, and what the registers behind it mean.
AtaRegisters AtaCheckPowerMode();
DrivePower AtaPowerOf(const AtaRegisters& answer);

/// Whether the registers behind a command say that it failed: kDone; kNotSupported for a command that was aborted (a
/// drive without the feature, or with the feature turned off, answers so); kRefused otherwise. `error` of the answer is
/// as DriveAnswer has it.
DriveAnswer AtaOutcome(const AtaRegisters& answer);

}  // namespace platform
