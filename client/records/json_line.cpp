#include "client/records/json_line.h"

#include <cstdint>
#include <cstring>

#include "client/text/string.h"

namespace TVK {
namespace {

// Whether one of eight bytes is a quotation mark, a backslash or below U+0020. A byte of 0x80 and more never is; one
// behind such a byte may be taken for it, which only costs the longer way.
bool NeedsLook(std::uint64_t bytes) {
  constexpr std::uint64_t kOnes = 0x0101010101010101;
  constexpr std::uint64_t kHighs = 0x8080808080808080;
  const auto has_zero = [](std::uint64_t x) { return (x - kOnes) & ~x & kHighs; };
  return (has_zero(bytes ^ (kOnes * '"')) | has_zero(bytes ^ (kOnes * '\\')) |
          ((bytes - kOnes * 0x20) & ~bytes & kHighs)) != 0;
}

class Scanner {
 public:
  explicit Scanner(std::string_view text) : at_(text.data()), end_(text.data() + text.size()) {}

  bool IsObject() {
    SkipBlanks();
    if (at_ == end_ || *at_ != '{' || !Value(0)) return false;
    SkipBlanks();
    return at_ == end_;
  }

 private:
  bool Value(int depth) {
    SkipBlanks();
    if (at_ == end_ || depth > kDeepestJsonLine) return false;
    switch (*at_) {
      case '{':
        return Members('}', depth);
      case '[':
        return Members(']', depth);
      case '"':
        return Text();
      case 't':
        return Word("true");
      case 'f':
        return Word("false");
      case 'n':
        return Word("null");
      default:
        return Number();
    }
  }

  // What stands between the brackets, of which the first is next.
  bool Members(char closing, int depth) {
    ++at_;
    SkipBlanks();
    if (Take(closing)) return true;
    do {
      SkipBlanks();
      if (closing == '}') {
        if (at_ == end_ || *at_ != '"' || !Text()) return false;
        SkipBlanks();
        if (!Take(':')) return false;
      }
      if (!Value(depth + 1)) return false;
      SkipBlanks();
    } while (Take(','));
    return Take(closing);
  }

  bool Text() {
    for (++at_; at_ != end_;) {
      std::uint64_t bytes = 0;
      if (static_cast<std::size_t>(end_ - at_) >= sizeof bytes) {
        std::memcpy(&bytes, at_, sizeof bytes);
        if (!NeedsLook(bytes)) {
          at_ += sizeof bytes;
          continue;
        }
      }
      const char c = *at_++;
      if (c == '"') return true;
      if (static_cast<unsigned char>(c) < 0x20 || (c == '\\' && !Escape())) return false;
    }
    return false;
  }

  bool Escape() {
    if (at_ == end_) return false;
    const char c = *at_++;
    if (c != 'u') return std::string_view("\"\\/bfnrt").find(c) != std::string_view::npos;
    for (int digits = 0; digits < 4; ++digits, ++at_) {
      if (at_ == end_ || std::string_view("0123456789abcdefABCDEF").find(*at_) == std::string_view::npos) return false;
    }
    return true;
  }

  bool Number() {
    Take('-');
    if (!Take('0') && !Digits()) return false;
    if (Take('.') && !Digits()) return false;
    if (!Take('e') && !Take('E')) return true;
    if (!Take('+')) Take('-');
    return Digits();
  }

  bool Digits() {
    const char* const begin = at_;
    while (at_ != end_ && *at_ >= '0' && *at_ <= '9')
      ++at_;
    return at_ != begin;
  }

  bool Word(std::string_view word) {
    if (static_cast<std::size_t>(end_ - at_) < word.size() || std::memcmp(at_, word.data(), word.size()) != 0) {
      return false;
    }
    at_ += word.size();
    return true;
  }

  bool Take(char c) {
    if (at_ == end_ || *at_ != c) return false;
    ++at_;
    return true;
  }

  // A line feed, a blank elsewhere, would end the line.
  void SkipBlanks() {
    while (at_ != end_ && (*at_ == ' ' || *at_ == '\t' || *at_ == '\r'))
      ++at_;
  }

  const char* at_;
  const char* const end_;
};

}  // namespace

bool IsJsonObjectLine(std::string_view text) {
  return Scanner(text).IsObject();
}

std::string HarmlessJson(std::string_view json) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string out;
  out.reserve(json.size());
  for (std::size_t at = 0; at < json.size();) {
    const std::size_t begin = at;
    const char32_t c = NextCharacter(json, at);
    if (IsControlCharacter(c) || IsDirectionOrLineCharacter(c)) {
      out += "\\u";
      for (int shift = 12; shift >= 0; shift -= 4)
        out += kHex[(c >> shift) & 15];
    } else if (c == 0xFFFD) {
      out += "\uFFFD";
    } else {
      out += json.substr(begin, at - begin);
    }
  }
  return out;
}

}  // namespace TVK
