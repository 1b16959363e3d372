#include "client/storage/ata_smart.h"

#include <array>
#include <cstddef>
#include <numeric>

#include "platform/ata_command.h"
#include "platform/little_endian.h"

namespace TVK {
namespace {

// SFF-8035i: 30 entries of 12 bytes behind a revision number, in both sectors. An entry without an id is not used.
// Later standards call these bytes of the values (2 to 361) "Vendor specific", and have no command for the thresholds:
// SMART READ ATTRIBUTE THRESHOLDS of ATA-3 is obsolete since ATA-4. Drives still answer as SFF-8035i has it.
constexpr std::size_t kEntries = 30;
constexpr std::size_t kFirstEntry = 2;
constexpr std::size_t kEntrySize = 12;
constexpr std::size_t kEntryId = 0;
// "Individual Attribute Data Structure"
constexpr std::size_t kEntryNormalized = 3;
constexpr std::size_t kEntryWorst = 4;
constexpr std::size_t kEntryRaw = 5;
constexpr std::size_t kRawSize = 6;
// "Individual Threshold Data Structure"
constexpr std::size_t kEntryThreshold = 1;

// ACS-3 and ACS-4, SMART READ DATA, "Device SMART data structure".
constexpr std::size_t kSelfTestStatus = 363;     // "Self-test execution status byte"
constexpr std::size_t kOffLineCapability = 367;  // "Off-line data collection capability"
constexpr std::size_t kShortTestMinutes = 372;   // "Short self-test routine recommended polling time"
constexpr std::uint8_t kExecuteOffLineImmediate = 0x01;
constexpr std::uint8_t kSelfTests = 0x10;

/// Calls `visit` with each entry that is used.
template <typename Visit>
void ForEachEntry(std::span<const std::uint8_t> sector, Visit visit) {
  for (std::size_t i = 0; i < kEntries; ++i) {
    const auto entry = sector.subspan(kFirstEntry + i * kEntrySize, kEntrySize);
    if (entry[kEntryId] != 0) visit(entry);
  }
}

}  // namespace

AtaSelfTestStatus DecodeAtaSelfTestStatus(std::uint8_t status) {
  const auto code = static_cast<std::uint8_t>(status >> 4);
  return {code, static_cast<std::uint8_t>(code == kAtaSelfTestRuns ? status & 0x0F : 0)};
}

// "Data structure checksum": byte 511 of each such sector makes the sum of all its bytes zero.
bool HasAtaChecksum(std::span<const std::uint8_t> sector) {
  if (sector.size() != platform::kAtaSectorSize) return false;
  return static_cast<std::uint8_t>(std::accumulate(sector.begin(), sector.end(), 0u)) == 0;
}

std::optional<AtaSmart> DecodeAtaSmart(std::span<const std::uint8_t> values, std::span<const std::uint8_t> thresholds) {
  if (!HasAtaChecksum(values)) return std::nullopt;
  std::array<std::optional<std::uint8_t>, 256> threshold_of;
  if (HasAtaChecksum(thresholds)) {
    ForEachEntry(thresholds, [&](std::span<const std::uint8_t> entry) {
      auto& threshold = threshold_of[entry[kEntryId]];
      if (!threshold) threshold = entry[kEntryThreshold];
    });
  }
  AtaSmart smart;
  smart.attributes.reserve(kEntries);
  ForEachEntry(values, [&](std::span<const std::uint8_t> entry) {
    smart.attributes.push_back({.id = entry[kEntryId],
                                .normalized = entry[kEntryNormalized],
                                .worst = entry[kEntryWorst],
                                .raw = platform::LittleEndianAt<std::uint64_t>(entry, kEntryRaw, kRawSize),
                                .threshold = threshold_of[entry[kEntryId]]});
  });
  smart.self_test = DecodeAtaSelfTestStatus(values[kSelfTestStatus]);
  constexpr std::uint8_t kNeeded = kExecuteOffLineImmediate | kSelfTests;
  smart.self_test_supported = (values[kOffLineCapability] & kNeeded) == kNeeded;
  smart.short_test_minutes = values[kShortTestMinutes];
  return smart;
}

}  // namespace TVK
