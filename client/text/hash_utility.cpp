#include "client/text/hash_utility.h"

#include "client/text/string.h"
#include "platform/hash.h"

namespace TVK {

std::wstring HashUtility::Hash(std::wstring_view value, std::wstring_view salt) {
  std::string bytes = String::UTF16ToUTF8(salt);
  bytes += '\0';
  bytes += String::UTF16ToUTF8(value);
  std::wstring text;
  for (const std::uint8_t byte : platform::Sha256(bytes)) {
    text += L"0123456789ABCDEF"[byte >> 4];
    text += L"0123456789ABCDEF"[byte & 0x0F];
  }
  return text;
}

std::wstring HashUtility::HashSerialNumber(std::wstring_view serial_number) {
  // 32 hexadecimal digits, drawn once. Another salt would make another device of each.
  constexpr std::wstring_view kSalt = L"8D1F40C6A97B4E52B03E6C25D9174AF8";
  return Hash(serial_number, kSalt);
}

}  // namespace TVK
