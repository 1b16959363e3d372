// Texts in the bytes of drives: ASCII, filled up with blanks. Pure; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace platform {

/// `bytes` in their order, without the blanks at both ends; each byte that is no printable ASCII counts as a blank.
inline std::string DriveText(std::span<const std::uint8_t> bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes)
    text += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : ' ';
  const auto first = text.find_first_not_of(' ');
  return first == text.npos ? std::string() : text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

/// ATA's texts: of each two bytes the second is the first character ("ATA string convention", ACS-4, 3.3.10).
/// `bytes` are an even number.
inline std::string AtaDriveText(std::span<const std::uint8_t> bytes) {
  std::vector<std::uint8_t> characters(bytes.begin(), bytes.end());
  for (std::size_t i = 0; i + 1 < characters.size(); i += 2)
    std::swap(characters[i], characters[i + 1]);
  return DriveText(characters);
}

}  // namespace platform
