// Builds what drives answer for tests: sectors of ATA drives, pages of NVMe drives, as their standards lay them out.
#pragma once

#include <cstdint>
#include <numeric>
#include <string_view>
#include <vector>

namespace testing_support {

using Sector = std::vector<std::uint8_t>;

/// `size` bytes of `value` at `offset`, the lowest first.
inline void PutLittleEndian(Sector& sector, std::size_t offset, std::uint64_t value, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i)
    sector.at(offset + i) = static_cast<std::uint8_t>(value >> (8 * i));
}

/// Makes the sum of all bytes zero.
inline Sector WithChecksum(Sector sector) {
  sector.back() = 0;
  sector.back() = static_cast<std::uint8_t>(-std::accumulate(sector.begin(), sector.end(), 0));
  return sector;
}

struct AttributeSpec {
  std::uint8_t id = 0;
  std::uint8_t normalized = 100;
  std::uint8_t worst = 100;
  std::uint64_t raw = 0;
};

/// SMART READ DATA; `self_test_status` is the byte, upper half first.
inline Sector AtaValues(const std::vector<AttributeSpec>& attributes, std::uint8_t self_test_status = 0) {
  Sector sector(512);
  PutLittleEndian(sector, 0, 0x0010, 2);
  std::size_t at = 2;
  for (const AttributeSpec& attribute : attributes) {
    PutLittleEndian(sector, at, attribute.id, 1);
    PutLittleEndian(sector, at + 1, 0x0033, 2);
    PutLittleEndian(sector, at + 3, attribute.normalized, 1);
    PutLittleEndian(sector, at + 4, attribute.worst, 1);
    PutLittleEndian(sector, at + 5, attribute.raw, 6);
    PutLittleEndian(sector, at + 11, 0xEE, 1);  // the vendor's
    at += 12;
  }
  PutLittleEndian(sector, 363, self_test_status, 1);
  PutLittleEndian(sector, 367, 0x5B, 1);
  PutLittleEndian(sector, 372, 2, 1);
  return WithChecksum(sector);
}

struct ThresholdSpec {
  std::uint8_t id = 0;
  std::uint8_t threshold = 0;
};

/// SMART READ THRESHOLDS.
inline Sector AtaThresholds(const std::vector<ThresholdSpec>& thresholds) {
  Sector sector(512);
  PutLittleEndian(sector, 0, 0x0010, 2);
  std::size_t at = 2;
  for (const auto& [id, threshold] : thresholds) {
    PutLittleEndian(sector, at, id, 1);
    PutLittleEndian(sector, at + 1, threshold, 1);
    at += 12;
  }
  return WithChecksum(sector);
}

/// A text as ATA has it, filled up with blanks: the first of two characters in the second byte.
inline void PutAtaText(Sector& sector, std::size_t word, std::size_t words, std::string_view text) {
  for (std::size_t i = 0; i < 2 * words; ++i)
    sector.at((2 * word + i) ^ 1) = static_cast<std::uint8_t>(i < text.size() ? text[i] : ' ');
}

struct IdentifySpec {
  std::string_view model = "Contoso SSD 256GB";
  std::string_view serial = "S3CRET-ATA";
  std::uint16_t rotation_rate = 1;  // Solid state.
  std::uint16_t configuration = 0x0040;
  std::uint16_t supported_mark = 0x4000;
  std::uint16_t enabled_mark = 0x4000;
};

/// IDENTIFY DEVICE of a drive whose SMART, with self-tests, is on.
inline Sector AtaIdentify(const IdentifySpec& spec = {}) {
  Sector sector(512);
  PutLittleEndian(sector, 0, spec.configuration, 2);
  PutAtaText(sector, 10, 10, spec.serial);
  PutAtaText(sector, 23, 4, "FW1.20");
  PutAtaText(sector, 27, 20, spec.model);
  PutLittleEndian(sector, 2 * 82, 0x746B, 2);
  PutLittleEndian(sector, 2 * 83, spec.supported_mark | 0x3D01, 2);
  PutLittleEndian(sector, 2 * 84, spec.supported_mark | 0x2163, 2);
  PutLittleEndian(sector, 2 * 85, 0x7469, 2);
  PutLittleEndian(sector, 2 * 87, spec.enabled_mark | 0x2163, 2);
  PutLittleEndian(sector, 2 * 217, spec.rotation_rate, 2);
  PutLittleEndian(sector, 510, 0xA5, 1);
  return WithChecksum(sector);
}

/// The SMART / Health Information log of an NVMe drive at 40 degrees, whose counters are 1001, 1002, ... in their order
/// and whose sensors are at 41, 42, ... degrees.
inline Sector NvmeHealthPage() {
  Sector page(512);
  PutLittleEndian(page, 0, 0x04, 1);
  PutLittleEndian(page, 1, 40 + 273, 2);
  PutLittleEndian(page, 3, 98, 1);
  PutLittleEndian(page, 4, 10, 1);
  PutLittleEndian(page, 5, 3, 1);
  for (std::size_t i = 0; i < 10; ++i)
    PutLittleEndian(page, 32 + 16 * i, 1001 + i, 8);
  PutLittleEndian(page, 192, 5, 4);
  PutLittleEndian(page, 196, 6, 4);
  for (std::size_t i = 0; i < 8; ++i)
    PutLittleEndian(page, 200 + 2 * i, 41 + i + 273, 2);
  return page;
}

}  // namespace testing_support
