// Builds what batteries' drivers and the maker's power software answer for tests and fuzz seeds: blocks of the
// energy-management driver and of the power manager's library have every field filled.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "testing/drive_sectors.h"

namespace testing_support {

using BatteryBytes = std::vector<std::uint8_t>;

/// Numbers of four bytes, one behind the other.
inline BatteryBytes Words(std::initializer_list<std::uint32_t> words) {
  BatteryBytes bytes(words.size() * 4);
  std::size_t at = 0;
  for (const std::uint32_t word : words) {
    PutLittleEndian(bytes, at, word, 4);
    at += 4;
  }
  return bytes;
}

inline void PutText(BatteryBytes& block, std::size_t at, std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i)
    block.at(at + i) = static_cast<std::uint8_t>(text[i]);
}

/// `cycles` and the five counters behind it: 1, 2, 3, 4, 5 more.
inline void PutCounters(BatteryBytes& block, std::size_t at, std::uint32_t cycles) {
  for (std::uint32_t i = 0; i < 6; ++i)
    PutLittleEndian(block, at + 4 * i, cycles + i, 4);
}

inline void PutLabel(BatteryBytes& block, std::size_t at, std::string_view serial, std::string_view maker) {
  PutText(block, at, serial);
  PutText(block, at + 32, maker);
  PutText(block, at + 64, "5B10W13930");
  PutText(block, at + 96, "LiP");
}

inline BatteryBytes EmIdentityBlock(std::string_view serial = "EM-0815") {
  BatteryBytes block(140);
  for (std::uint8_t i = 0; i < 16; ++i)
    block[i] = static_cast<std::uint8_t>(0x11 * i);
  PutLittleEndian(block, 16, 2023, 2);
  PutLittleEndian(block, 18, 12, 1);
  PutLittleEndian(block, 19, 31, 1);
  PutLittleEndian(block, 20, 2024, 2);
  PutLittleEndian(block, 22, 2, 1);
  PutLittleEndian(block, 23, 29, 1);
  PutLittleEndian(block, 24, 57'020, 4);
  PutLabel(block, 28, serial, "Fabrikam");
  return block;
}

inline BatteryBytes EmConditionBlock(std::uint32_t condition = 1) {
  BatteryBytes block(12);
  PutLittleEndian(block, 0, condition, 4);
  PutLittleEndian(block, 4, 51'000, 4);
  return block;
}

inline BatteryBytes EmUsageBlock() {
  BatteryBytes block(24);
  PutCounters(block, 0, 200);
  return block;
}

/// Of the 256 bytes that the library is given.
inline BatteryBytes SmartStatusBlock(std::uint32_t status_bits = 0, std::uint32_t filled = 40) {
  BatteryBytes block(256);
  PutLittleEndian(block, 0, filled, 4);
  PutLittleEndian(block, 4, status_bits, 4);
  PutLittleEndian(block, 8, 50'000, 4);
  PutLittleEndian(block, 12, 25'000, 4);
  PutCounters(block, 16, 300);
  return block;
}

inline BatteryBytes SmartInformationBlock(std::string_view serial = "SM-0815",
                                          std::string_view manufactured = "2023-5-3", std::uint32_t filled = 188) {
  BatteryBytes block(256);
  PutLittleEndian(block, 0, filled, 4);
  PutLittleEndian(block, 4, 1, 4);
  PutLittleEndian(block, 8, 57'030, 4);
  PutText(block, 12, manufactured);
  PutText(block, 28, "2023-11-30");
  PutText(block, 44, "3 years, on site");
  PutLabel(block, 76, serial, "Litware");
  return block;
}

}  // namespace testing_support
