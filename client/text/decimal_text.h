// Decimal numbers without a format and without the heap, for texts that are made by the hundred. Pure; any thread.
#pragma once

#include <array>
#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

namespace TVK {

/// The digits of one number, a minus sign before those of a negative one.
class DecimalText {
 public:
  template <std::integral Number>
  explicit DecimalText(Number number) {
    const bool negative = number < 0;
    auto rest = static_cast<std::uint64_t>(number);
    if (negative) rest = 0 - rest;
    do {
      *--first_ = static_cast<wchar_t>(L'0' + rest % 10);
      rest /= 10;
    } while (rest != 0);
    if (negative) *--first_ = L'-';
  }
  DecimalText(const DecimalText&) = delete;
  DecimalText& operator=(const DecimalText&) = delete;

  /// Valid as long as the object.
  std::wstring_view view() const { return {first_, characters_.data() + characters_.size()}; }
  std::wstring text() const { return std::wstring(view()); }

 private:
  std::array<wchar_t, 20> characters_;  // 2^64-1 has 20 digits, -2^63 has 19 and its sign
  wchar_t* first_ = characters_.data() + characters_.size();
};

}  // namespace TVK
