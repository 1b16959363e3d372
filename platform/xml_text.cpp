#include "platform/xml_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <utility>

namespace platform {
namespace {

/// How many bytes the character at the begin of `text` has; 0 when it is none that XML 1.0 may hold (its production
/// Char), ill-formed UTF-8 included.
std::size_t CharacterLength(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned first = byte(0);
  if (first < 0x80) return first >= 0x20 || first == '\t' || first == '\n' || first == '\r' ? 1 : 0;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  static constexpr std::array<unsigned, 5> kLeast = {0, 0, 0x80, 0x800, 0x10000};
  if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
  unsigned code = first & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
    code = code << 6 | (byte(i) & 0x3F);
  }
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  const bool allowed = code >= kLeast[length] && code <= 0x10FFFF && !surrogate && code != 0xFFFE && code != 0xFFFF;
  return allowed ? length : 0;
}

/// Adds the character in UTF-8; false when XML 1.0 has none of that number.
bool AppendCharacter(std::uint32_t code, std::string& text) {
  constexpr std::uint32_t kMost = 0x10FFFF;
  if (code == 0 || code > kMost) return false;
  std::string bytes;
  const auto tail = [&](int shift) { bytes += static_cast<char>(0x80 | ((code >> shift) & 0x3F)); };
  if (code < 0x80) {
    bytes += static_cast<char>(code);
  } else if (code < 0x800) {
    bytes += static_cast<char>(0xC0 | code >> 6);
  } else if (code < 0x10000) {
    bytes += static_cast<char>(0xE0 | code >> 12);
    tail(6);
  } else {
    bytes += static_cast<char>(0xF0 | code >> 18);
    tail(12);
    tail(6);
  }
  if (code >= 0x80) tail(0);
  if (CharacterLength(bytes) == 0) return false;
  text += bytes;
  return true;
}

/// `name` as it stands between "&" and ";".
bool AppendReference(std::string_view name, std::string& text) {
  static constexpr std::array<std::pair<std::string_view, char>, 5> kEntities = {
      {{"lt", '<'}, {"gt", '>'}, {"amp", '&'}, {"apos", '\''}, {"quot", '"'}}};
  const auto* const entity = std::ranges::find(kEntities, name, &std::pair<std::string_view, char>::first);
  if (entity != kEntities.end()) {
    text += entity->second;
    return true;
  }
  if (!name.starts_with('#')) return false;
  const bool hexadecimal = name.starts_with("#x");
  const std::string_view digits = name.substr(hexadecimal ? 2 : 1);
  std::uint32_t code = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), code, hexadecimal ? 16 : 10);
  return error == std::errc() && end == digits.data() + digits.size() && AppendCharacter(code, text);
}

}  // namespace

void AppendXmlText(std::string_view text, std::string& xml) {
  while (!text.empty()) {
    const std::size_t length = CharacterLength(text);
    if (length == 0) {
      xml += "\xEF\xBF\xBD";
      text.remove_prefix(1);
      continue;
    }
    switch (text.front()) {
      case '<':
        xml += "&lt;";
        break;
      case '>':
        xml += "&gt;";
        break;
      case '&':
        xml += "&amp;";
        break;
      case '"':
        xml += "&quot;";
        break;
      case '\r':  // XML reads a bare one as a line's end
        xml += "&#13;";
        break;
      default:
        xml.append(text.substr(0, length));
    }
    text.remove_prefix(length);
  }
}

std::optional<std::string> UnescapeXml(std::string_view xml) {
  std::string plain;
  while (!xml.empty()) {
    const std::size_t run = std::min(xml.find('&'), xml.size());
    plain.append(xml.substr(0, run));
    xml.remove_prefix(run);
    if (xml.empty()) break;
    const std::size_t end = xml.find(';');
    if (end == xml.npos || !AppendReference(xml.substr(1, end - 1), plain)) return std::nullopt;
    xml.remove_prefix(end + 1);
  }
  return plain;
}

}  // namespace platform
