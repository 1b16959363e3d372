#include "client/text/guid.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "client/text/string.h"
#include "platform/hash.h"

namespace TVK::Utility {
namespace {

using Bytes = std::array<std::uint8_t, 16>;

std::wstring Text(Bytes bytes, int version, bool upper_case) {
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | (version << 4));
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

}  // namespace

std::wstring CGuid::NewGuid(bool upper_case) {
  Bytes bytes{};
  platform::FillRandom(bytes);
  return Text(bytes, 4, upper_case);
}

std::wstring CGuid::OfName(std::wstring_view space, std::wstring_view name) {
  const auto hash = platform::Sha256(String::UTF16ToUTF8(space) + '\0' + String::UTF16ToUTF8(name));
  Bytes bytes{};
  std::copy_n(hash.begin(), bytes.size(), bytes.begin());
  return Text(bytes, 8, true);
}

}  // namespace TVK::Utility
