#include "platform/utf16_text.h"

#include "platform/little_endian.h"

namespace platform {
namespace {

void AppendUtf8(std::string& text, char32_t character) {
  const auto put = [&](char32_t byte) { text += static_cast<char>(static_cast<unsigned char>(byte)); };
  const auto put_rest = [&](int shift) { put(0x80 | (character >> shift & 0x3F)); };
  if (character < 0x80) return put(character);
  if (character < 0x800) {
    put(0xC0 | character >> 6);
  } else if (character < 0x10000) {
    put(0xE0 | character >> 12);
    put_rest(6);
  } else {
    put(0xF0 | character >> 18);
    put_rest(12);
    put_rest(6);
  }
  put_rest(0);
}

constexpr bool IsHighSurrogate(char32_t unit) {
  return unit >= 0xD800 && unit < 0xDC00;
}
constexpr bool IsLowSurrogate(char32_t unit) {
  return unit >= 0xDC00 && unit < 0xE000;
}

}  // namespace

std::string Utf16Text(std::span<const std::uint8_t> bytes) {
  std::u32string characters;
  for (; bytes.size() >= 2; bytes = bytes.subspan(2)) {
    char32_t unit = LittleEndianAt<std::uint16_t>(bytes, 0);
    if (unit == 0) break;
    const char32_t next = bytes.size() >= 4 ? LittleEndianAt<std::uint16_t>(bytes, 2) : 0;
    if (IsHighSurrogate(unit) && IsLowSurrogate(next)) {
      unit = 0x10000 + (unit - 0xD800) * 0x400 + (next - 0xDC00);
      bytes = bytes.subspan(2);
    } else if (IsHighSurrogate(unit) || IsLowSurrogate(unit)) {
      unit = 0xFFFD;
    }
    characters += unit;
  }
  const auto blank = [](char32_t character) { return character <= U' ' || character == 0x7F; };
  std::size_t end = characters.size();
  while (end > 0 && blank(characters[end - 1]))
    --end;
  std::size_t begin = 0;
  while (begin < end && blank(characters[begin]))
    ++begin;
  std::string text;
  for (const char32_t character : std::u32string_view(characters).substr(begin, end - begin))
    AppendUtf8(text, character);
  return text;
}

}  // namespace platform
