// Texts in the bytes of drives: ASCII, filled up with blanks. Pure; any thread.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace platform {

/// `bytes` in their order, without the blanks at both ends; each byte that is no printable ASCII counts as a blank.
inline std::string DriveText(std::span<const std::uint8_t> bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes)
    text += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : ' ';
  const auto first = text.find_first_not_of(' ');
  return first == text.npos ? std::string() : text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

}  // namespace platform
