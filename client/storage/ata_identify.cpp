#include "client/storage/ata_identify.h"

#include <cstddef>
#include <vector>

#include "client/storage/ata_smart.h"
#include "platform/ata_command.h"
#include "platform/drive_text.h"
#include "platform/little_endian.h"

namespace TVK {
namespace {

// ACS-3 and ACS-4, "IDENTIFY DEVICE data". The numbers are those of its words, which are described one by one there,
// under the titles beside them.
constexpr std::size_t kConfiguration = 0;       // "General configuration"
constexpr std::size_t kSerialNumber = 10;       // "Serial number", 10 words
constexpr std::size_t kFirmwareRevision = 23;   // "Firmware revision", 4 words
constexpr std::size_t kModelNumber = 27;        // "Model number", 20 words
constexpr std::size_t kFeaturesSupported = 82;  // 82 to 84: "Commands and feature sets supported"
constexpr std::size_t kFeaturesSupportedMark = 83;
constexpr std::size_t kMoreFeaturesSupported = 84;  // and its mark
constexpr std::size_t kFeaturesEnabled = 85;        // 85 to 87: "... supported or enabled"
constexpr std::size_t kFeaturesEnabledMark = 87;
constexpr std::size_t kRotationRate = 217;  // "Nominal media rotation rate"
constexpr std::size_t kIntegrity = 255;     // "Integrity word"

constexpr std::uint16_t kSmart = 0x0001;          // of words 82 and 85
constexpr std::uint16_t kSmartSelfTest = 0x0002;  // of word 84

std::uint16_t Word(std::span<const std::uint8_t> sector, std::size_t number) {
  return platform::LittleEndianAt<std::uint16_t>(sector, 2 * number);
}

std::string Text(std::span<const std::uint8_t> sector, std::size_t first_word, std::size_t words) {
  return platform::AtaDriveText(sector.subspan(2 * first_word, 2 * words));
}

// Words that hold something say so in their two highest bits.
bool IsMarked(std::uint16_t word) {
  return (word & 0xC000) == 0x4000;
}

// The highest bit tells packet devices; memory cards were given a number of their own that has it, too (word 0 as CFA
// defines it).
bool IsPacketDevice(std::uint16_t configuration) {
  constexpr std::uint16_t kMemoryCard = 0x848A;
  return (configuration & 0x8000) != 0 && configuration != kMemoryCard;
}

std::optional<bool> IsRotating(std::uint16_t rate) {
  constexpr std::uint16_t kSolidState = 0x0001;
  constexpr std::uint16_t kLowestRate = 0x0401;
  constexpr std::uint16_t kHighestRate = 0xFFFE;
  if (rate == kSolidState) return false;
  if (rate >= kLowestRate && rate <= kHighestRate) return true;
  return std::nullopt;
}

}  // namespace

bool IsAtaIdentifyIntact(std::span<const std::uint8_t> sector) {
  constexpr std::uint8_t kSignature = 0xA5;  // says that the upper byte of the word makes the sum of all bytes zero
  return sector.size() == platform::kAtaSectorSize && (sector[2 * kIntegrity] != kSignature || HasAtaChecksum(sector));
}

std::optional<AtaIdentity> DecodeAtaIdentify(std::span<const std::uint8_t> sector) {
  if (!IsAtaIdentifyIntact(sector) || IsPacketDevice(Word(sector, kConfiguration))) return std::nullopt;
  AtaIdentity identity{.serial_number = Text(sector, kSerialNumber, 10),
                       .firmware_version = Text(sector, kFirmwareRevision, 4),
                       .model = Text(sector, kModelNumber, 20),
                       .rotating = IsRotating(Word(sector, kRotationRate))};
  if (identity.model.empty()) return std::nullopt;  // zeros, as some bridges give them
  const std::uint16_t more = Word(sector, kMoreFeaturesSupported);
  identity.smart_supported =
      IsMarked(Word(sector, kFeaturesSupportedMark)) && (Word(sector, kFeaturesSupported) & kSmart) != 0;
  identity.smart_enabled =
      IsMarked(Word(sector, kFeaturesEnabledMark)) && (Word(sector, kFeaturesEnabled) & kSmart) != 0;
  identity.self_test_supported = IsMarked(more) && (more & kSmartSelfTest) != 0;
  return identity;
}

}  // namespace TVK
