#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace TVK::utility {

/// Longer texts are refused before the regular expression sees them: its matcher recurses once a character.
inline constexpr std::size_t kLongestIntervalText = 32;

/// Whether `text` as a whole matches `pattern`, an ECMAScript regular expression such as "^\d+(m|h|d)$". False for a
/// text longer than kLongestIntervalText. Any thread.
bool IntervalTextMatches(std::wstring_view text, const std::wstring& pattern);

/// The interval that `text` means, in milliseconds: digits and a unit (ms, s, m, h, d), when `text` as a whole matches
/// `pattern` (an ECMAScript regular expression such as "^\d+(m|h|d)$").
/// Returns 0 when it does not match, is longer than kLongestIntervalText, or exceeds 64 bits of milliseconds. Any
/// thread.
std::uint64_t GetIntervalInMillisecondsGivenRegex(std::wstring_view text, const std::wstring& pattern);

}  // namespace TVK::utility
