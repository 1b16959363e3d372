#include "platform/ata_command.h"

namespace platform {
namespace {

// ACS-3 and ACS-4, the command codes of IDENTIFY DEVICE, CHECK POWER MODE and SMART.
constexpr std::uint8_t kIdentifyDevice = 0xEC;
constexpr std::uint8_t kCheckPowerMode = 0xE5;
constexpr std::uint8_t kSmart = 0xB0;

// The same, "SMART": it tells its commands apart by the features register and wants a signature in two of the others.
// The thresholds are of ATA-3, log address and self-tests of "SMART READ LOG" and "SMART EXECUTE OFF-LINE IMMEDIATE".
constexpr std::uint8_t kReadData = 0xD0;
constexpr std::uint8_t kReadThresholds = 0xD1;
constexpr std::uint8_t kExecuteOffLineImmediate = 0xD4;
constexpr std::uint8_t kReadLog = 0xD5;
constexpr std::uint8_t kSelfTestLog = 0x06;
constexpr std::uint8_t kShortSelfTest = 0x01;
constexpr std::uint8_t kAbortSelfTest = 0x7F;

AtaRegisters Smart(std::uint8_t features, std::uint8_t lba_low, std::uint8_t count) {
  return {.features = features,
          .count = count,
          .lba_low = lba_low,
          .lba_middle = 0x4F,
          .lba_high = 0xC2,
          .command = kSmart};
}

}  // namespace

std::optional<AtaRegisters> AtaCommandOf(DrivePage page) {
  switch (page) {
    case DrivePage::kAtaIdentify:
      return AtaRegisters{.count = 1, .command = kIdentifyDevice};
    case DrivePage::kAtaSmartValues:
      return Smart(kReadData, 0, 1);
    case DrivePage::kAtaSmartThresholds:
      return Smart(kReadThresholds, 0, 1);
    case DrivePage::kAtaSelfTestLog:
      return Smart(kReadLog, kSelfTestLog, 1);
    case DrivePage::kNvmeController:
    case DrivePage::kNvmeHealth:
    case DrivePage::kNvmeSelfTestLog:
      break;
  }
  return std::nullopt;
}

std::optional<AtaRegisters> AtaCommandOf(DriveAction action) {
  if (action == DriveAction::kAtaStartShortSelfTest) return Smart(kExecuteOffLineImmediate, kShortSelfTest, 0);
  if (action == DriveAction::kAtaAbortSelfTest) return Smart(kExecuteOffLineImmediate, kAbortSelfTest, 0);
  return std::nullopt;
}

AtaRegisters AtaCheckPowerMode() {
  return {.command = kCheckPowerMode};
}

DrivePower AtaPowerOf(const AtaRegisters& answer) {
  // Some bridges give registers of zeros back; the status of a drive that works has this bit.
  constexpr std::uint8_t kStatusReady = 0x40;
  if (AtaOutcome(answer).result != DriveResult::kDone || (answer.command & kStatusReady) == 0) {
    return DrivePower::kUnknown;
  }
  // ACS-4, table 39. Idle ones spin, all but those whose non-volatile cache lets them stand still (40h).
  switch (answer.count) {
    case 0x00:  // standby
    case 0x01:  // standby, by a timer
    case 0x40:  // active, the platters stand
      return DrivePower::kAsleep;
    default:
      return DrivePower::kAwake;
  }
}

DriveAnswer AtaOutcome(const AtaRegisters& answer) {
  constexpr std::uint8_t kStatusError = 0x01;
  constexpr std::uint8_t kStatusFault = 0x20;
  constexpr std::uint8_t kErrorAborted = 0x04;
  constexpr std::uint8_t kErrorOfMediumOrCable = 0x80 | 0x40 | 0x10;  // with which a command is aborted, too
  if ((answer.command & (kStatusError | kStatusFault)) == 0) return {};
  const bool aborted = (answer.command & kStatusError) != 0 && (answer.features & kErrorAborted) != 0 &&
                       (answer.features & kErrorOfMediumOrCable) == 0;
  return {aborted ? DriveResult::kNotSupported : DriveResult::kRefused,
          static_cast<std::uint32_t>(answer.command << 8 | answer.features)};
}

}  // namespace platform
