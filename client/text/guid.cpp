#include "client/text/guid.h"

#include <array>
#include <cstdint>

#include "platform/hash.h"

namespace TVK::Utility {

std::wstring CGuid::NewGuid(bool upper_case) {
  std::array<std::uint8_t, 16> bytes{};
  platform::FillRandom(bytes);
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4: random
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
  const wchar_t* digits = upper_case ? L"0123456789ABCDEF" : L"0123456789abcdef";
  std::wstring text;
  text.reserve(36);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += L'-';
    text += digits[bytes[i] >> 4];
    text += digits[bytes[i] & 0x0F];
  }
  return text;
}

}  // namespace TVK::Utility
