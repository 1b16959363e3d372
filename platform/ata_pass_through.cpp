#include "platform/ata_pass_through.h"

#include <algorithm>
#include <cstddef>

namespace platform {
namespace {

// SAT-4, "ATA PASS-THROUGH (12) command" and "(16)". Byte 1: the protocol. Byte 2: whether registers are wanted back,
// which way data go, and what counts them.
struct Flags {
  std::uint8_t protocol;
  std::uint8_t transfer;
};

Flags FlagsOf(AtaTransfer transfer) {
  constexpr std::uint8_t kNonData = 3 << 1;
  constexpr std::uint8_t kPioDataIn = 4 << 1;
  constexpr std::uint8_t kCheckCondition = 0x20;  // CK_COND
  constexpr std::uint8_t kFromDevice = 0x08;      // T_DIR
  constexpr std::uint8_t kSectors = 0x04;         // BYT_BLOK
  constexpr std::uint8_t kByCount = 0x02;         // T_LENGTH: what the count register says
  if (transfer == AtaTransfer::kNone) return {kNonData, kCheckCondition};
  return {kPioDataIn, kFromDevice | kSectors | kByCount};
}

constexpr std::uint8_t kRecoveredError = 0x1;
constexpr std::uint8_t kIllegalRequest = 0x5;
constexpr std::uint8_t kUnitAttention = 0x6;
constexpr std::uint8_t kAbortedCommand = 0xB;

// The ATA Status Return descriptor (SAT-4, 12.2.2.7): of a 48-bit command the upper halves stand between these.
std::optional<AtaRegisters> FindStatusReturn(std::span<const std::uint8_t> descriptors) {
  constexpr std::uint8_t kStatusReturn = 0x09;
  constexpr std::size_t kSize = 14;
  while (descriptors.size() >= 2) {
    const std::size_t size = std::size_t{2} + descriptors[1];
    if (descriptors[0] == kStatusReturn && size >= kSize && descriptors.size() >= kSize) {
      return AtaRegisters{.features = descriptors[3],
                          .count = descriptors[5],
                          .lba_low = descriptors[7],
                          .lba_middle = descriptors[9],
                          .lba_high = descriptors[11],
                          .device = descriptors[12],
                          .command = descriptors[13]};
    }
    if (size > descriptors.size()) break;
    descriptors = descriptors.subspan(size);
  }
  return std::nullopt;
}

SenseData DecodeDescriptorFormat(std::span<const std::uint8_t> bytes) {
  constexpr std::size_t kHeader = 8;
  SenseData sense;
  if (bytes.size() < 4) return sense;
  sense = {.is_told = true, .key = static_cast<std::uint8_t>(bytes[1] & 0x0F), .code = bytes[2], .qualifier = bytes[3]};
  if (bytes.size() >= kHeader) {
    const auto rest = bytes.subspan(kHeader);
    sense.registers = FindStatusReturn(rest.first(std::min<std::size_t>(bytes[7], rest.size())));
  }
  return sense;
}

// Fixed format has room for what a 28-bit command leaves (SAT-4, 12.2.2.6), and says so by its code.
SenseData DecodeFixedFormat(std::span<const std::uint8_t> bytes) {
  constexpr std::uint8_t kInformationAvailable = 0x1D;
  SenseData sense;
  if (bytes.size() < 3) return sense;
  sense.is_told = true;
  sense.key = bytes[2] & 0x0F;
  if (bytes.size() < 14) return sense;
  sense.code = bytes[12];
  sense.qualifier = bytes[13];
  if (sense.code == 0 && sense.qualifier == kInformationAvailable) {
    sense.registers = AtaRegisters{.features = bytes[3],
                                   .count = bytes[6],
                                   .lba_low = bytes[9],
                                   .lba_middle = bytes[10],
                                   .lba_high = bytes[11],
                                   .device = bytes[5],
                                   .command = bytes[4]};
  }
  return sense;
}

}  // namespace

std::array<std::uint8_t, 16> AtaPassThrough16(const AtaRegisters& command, AtaTransfer transfer) {
  const Flags flags = FlagsOf(transfer);
  return {0x85,
          flags.protocol,
          flags.transfer,
          0,
          command.features,
          0,
          command.count,
          0,
          command.lba_low,
          0,
          command.lba_middle,
          0,
          command.lba_high,
          command.device,
          command.command,
          0};
}

std::array<std::uint8_t, 12> AtaPassThrough12(const AtaRegisters& command, AtaTransfer transfer) {
  const Flags flags = FlagsOf(transfer);
  return {0xA1,
          flags.protocol,
          flags.transfer,
          command.features,
          command.count,
          command.lba_low,
          command.lba_middle,
          command.lba_high,
          command.device,
          command.command,
          0,
          0};
}

SenseData DecodeSense(std::span<const std::uint8_t> bytes) {
  const int format = bytes.empty() ? 0 : bytes[0] & 0x7F;
  if (format == 0x70) return DecodeFixedFormat(bytes);
  if (format == 0x72) return DecodeDescriptorFormat(bytes);
  return {};
}

AtaPassThroughOutcome ReadAtaPassThrough(std::uint8_t status, const SenseData& sense) {
  AtaPassThroughOutcome outcome{.registers = sense.registers};
  if (sense.registers) outcome.answer = AtaOutcome(*sense.registers);
  const bool fine = sense.is_told ? sense.key <= kRecoveredError : status == 0;
  // Registers that tell of no error do not make good what the bridge or the kernel saw on the way.
  if (fine || outcome.answer.result != DriveResult::kDone) return outcome;
  outcome.answer.result = DriveResult::kFailed;
  if (!sense.is_told || sense.key == kUnitAttention) {
    outcome.has_other_news = true;
  } else if (sense.key == kIllegalRequest) {
    outcome.answer.result = DriveResult::kNotSupported;
    outcome.is_unknown_command = true;
  } else if (sense.key == kAbortedCommand && sense.code == 0 && !sense.registers) {
    // A bridge that keeps the registers to itself: so a drive answers what it does not know.
    outcome.answer.result = DriveResult::kNotSupported;
  }
  return outcome;
}

}  // namespace platform
