#include "client/storage/ata_self_test_log.h"

#include <algorithm>
#include <cstddef>

#include "platform/little_endian.h"

namespace TVK {
namespace {

// ACS-3 and ACS-4, log address 06h, "SMART Self-Test log": a revision number, a ring of 21 descriptors, and which of
// them is the newest.
constexpr std::size_t kDescriptors = 21;
constexpr std::size_t kFirstDescriptor = 2;
constexpr std::size_t kDescriptorSize = 24;
constexpr std::size_t kIndex = 508;  // "Self-test descriptor index", counted from 1; 0: no test was run

// The same, "Self-test log descriptor".
constexpr std::size_t kSubcommand = 0;     // low byte of the LBA that SMART EXECUTE OFF-LINE IMMEDIATE was given
constexpr std::size_t kStatus = 1;         // "Self-test execution status byte"
constexpr std::size_t kLifeTimestamp = 2;  // "Life timestamp", 2 bytes
constexpr std::size_t kFailingLba = 5;     // "Failing LBA", 4 bytes
constexpr std::uint8_t kReadFailed = 7;
constexpr std::uint32_t kLbaDoesNotFit = 0xFFFFFFFF;

}  // namespace

std::optional<AtaSelfTestLog> DecodeAtaSelfTestLog(std::span<const std::uint8_t> sector) {
  if (!HasAtaChecksum(sector)) return std::nullopt;
  const std::size_t index = sector[kIndex];
  if (index == 0) return AtaSelfTestLog();
  if (index > kDescriptors) return std::nullopt;
  const auto descriptor = sector.subspan(kFirstDescriptor + (index - 1) * kDescriptorSize, kDescriptorSize);
  if (std::ranges::all_of(descriptor, [](std::uint8_t byte) { return byte == 0; })) return AtaSelfTestLog();
  AtaSelfTestEntry entry{.subcommand = descriptor[kSubcommand],
                         .status = DecodeAtaSelfTestStatus(descriptor[kStatus]),
                         .power_on_hours = platform::LittleEndianAt<std::uint16_t>(descriptor, kLifeTimestamp),
                         .failing_lba = {},
                         .index = static_cast<std::uint8_t>(index)};
  const auto lba = platform::LittleEndianAt<std::uint32_t>(descriptor, kFailingLba);
  // The standard defines it for no other outcome.
  if (entry.status.code == kReadFailed && lba != kLbaDoesNotFit) entry.failing_lba = lba;
  return AtaSelfTestLog{entry};
}

}  // namespace TVK
