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

}  // namespace TVK
