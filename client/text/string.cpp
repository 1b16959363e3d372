#include "client/text/string.h"

#include <algorithm>
#include <cstdint>

namespace TVK {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsSurrogate(char32_t c) {
  return c >= 0xD800 && c <= 0xDFFF;
}

void AppendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

void AppendWide(std::wstring& out, char32_t c) {
  if constexpr (sizeof(wchar_t) == 2) {
    if (c >= 0x10000) {
      out += static_cast<wchar_t>(0xD800 + ((c - 0x10000) >> 10));
      out += static_cast<wchar_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
      return;
    }
  }
  out += static_cast<wchar_t>(c);
}

// The next character of well-formed UTF-8 at `at`, which moves past it; nothing moves when the bytes are malformed.
bool NextUtf8(std::string_view text, std::size_t& at, char32_t& c) {
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  const std::uint8_t lead = byte(at);
  if (lead < 0x80) {
    c = lead;
    ++at;
    return true;
  }
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() - at < length) return false;
  c = lead & (0x7F >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(at + i) & 0xC0) != 0x80) return false;
    c = (c << 6) | (byte(at + i) & 0x3F);
  }
  constexpr char32_t kSmallestOfLength[] = {0, 0, 0x80, 0x800, 0x10000};
  if (c < kSmallestOfLength[length] || c > 0x10FFFF || IsSurrogate(c)) return false;
  at += length;
  return true;
}

wchar_t AsciiUpper(wchar_t c) {
  return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c;
}
wchar_t AsciiLower(wchar_t c) {
  return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
}

}  // namespace

std::string String::UTF16ToUTF8(std::wstring_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    // wchar_t is signed on some systems; a value above U+10FFFF can only stand in a 32-bit unit.
    auto c = static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(text[i]));
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size()) {
      const auto low = static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(text[i + 1]));
      if (low >= 0xDC00 && low <= 0xDFFF) {
        c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
        ++i;
      }
    }
    AppendUtf8(out, IsSurrogate(c) || c > 0x10FFFF ? kReplacement : c);
  }
  return out;
}

std::wstring String::UTF8ToUTF16(std::string_view text) {
  std::wstring out;
  out.reserve(text.size());
  for (std::size_t at = 0; at < text.size();)
    AppendWide(out, NextCharacter(text, at));
  return out;
}

std::wstring String::ToUpper(std::wstring text) {
  std::ranges::transform(text, text.begin(), AsciiUpper);
  return text;
}

std::wstring String::ToLower(std::wstring text) {
  std::ranges::transform(text, text.begin(), AsciiLower);
  return text;
}

bool String::CaseInsesitiveFind(std::wstring haystack, std::wstring needle) {
  return ToLower(std::move(haystack)).find(ToLower(std::move(needle))) != std::wstring::npos;
}

bool String::CaseInsesitiveEqual(std::wstring_view a, std::wstring_view b) {
  return std::ranges::equal(a, b, [](wchar_t x, wchar_t y) { return AsciiLower(x) == AsciiLower(y); });
}

std::size_t FindInvalidUtf8(std::string_view text) {
  char32_t c = 0;
  for (std::size_t at = 0; at < text.size();) {
    if (!NextUtf8(text, at, c)) return at;
  }
  return std::string_view::npos;
}

char32_t NextCharacter(std::string_view text, std::size_t& at) {
  char32_t c = kReplacement;
  if (NextUtf8(text, at, c)) return c;
  ++at;
  return kReplacement;
}

bool HoldsControlCharacter(std::string_view text) {
  return std::ranges::any_of(String::UTF8ToUTF16(text), IsControlCharacter);
}

std::string HarmlessText(std::string_view text, char instead) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t start = at;
    char32_t c = 0;
    if (!NextUtf8(text, at, c)) {
      out += instead;
      ++at;
    } else if (IsControlCharacter(c) || IsDirectionOrLineCharacter(c)) {
      out += instead;
    } else {
      out += text.substr(start, at - start);
    }
  }
  return out;
}

}  // namespace TVK

bool StringHelper::caseInsesitiveEqual(std::wstring_view a, std::wstring_view b) {
  return TVK::String::CaseInsesitiveEqual(a, b);
}
