// Text conversion and comparison. Wide texts run through the component; UTF-8 stands at its edges. A wide text holds
// UTF-16 or UTF-32, whichever the system's wchar_t is; nothing here or above depends on which.
// All functions are pure and may be called by any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace TVK {

class String {
 public:
  /// Malformed input (a lone surrogate, a broken sequence) becomes U+FFFD, one for each bad unit or byte.
  static std::string UTF16ToUTF8(std::wstring_view text);
  static std::wstring UTF8ToUTF16(std::string_view text);

  /// Upper and lower case of the ASCII letters; every other character stays. Ids and scopes are ASCII, and a result
  /// that depends on the process's locale is of no use to them.
  static std::wstring ToUpper(std::wstring text);
  static std::wstring ToLower(std::wstring text);

  /// Whether `needle` occurs in `haystack`, ASCII case aside. An empty needle occurs in every text.
  static bool CaseInsesitiveFind(std::wstring haystack, std::wstring needle);
  static bool CaseInsesitiveEqual(std::wstring_view a, std::wstring_view b);
};

/// Offset of the first byte that does not belong to a well-formed UTF-8 sequence (RFC 3629: no overlong forms, no
/// surrogates, nothing above U+10FFFF), or npos.
std::size_t FindInvalidUtf8(std::string_view text);

/// The character that begins at `at`, which moves behind it; U+FFFD, and `at` one byte further, where no well-formed
/// one does. `at` lies within `text`, UTF-8.
char32_t NextCharacter(std::string_view text, std::size_t& at);

/// The control characters of ASCII and of ISO 8859-1 (U+0080 to U+009F, which some terminals obey as well).
constexpr bool IsControlCharacter(char32_t c) {
  return c < 0x20 || (c >= 0x7F && c < 0xA0);
}

/// What turns the direction of the text behind it (Unicode Standard Annex 9), or ends its line: with them a value can
/// make a terminal show another one than it is.
constexpr bool IsDirectionOrLineCharacter(char32_t c) {
  return c == 0x061C || c == 0x200E || c == 0x200F || (c >= 0x2028 && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
}

/// Whether `text`, UTF-8, holds a control character.
bool HoldsControlCharacter(std::string_view text);

/// `text`, UTF-8, such that it cannot steer a terminal: `instead` stands for each character of the two kinds above and
/// for each byte that belongs to no well-formed character.
std::string HarmlessText(std::string_view text, char instead = '?');

}  // namespace TVK

class StringHelper {
 public:
  static bool caseInsesitiveEqual(std::wstring_view a, std::wstring_view b);
};
