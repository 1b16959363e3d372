#include "client/text/interval.h"

#include <limits>
#include <regex>

namespace TVK::utility {
namespace {

std::uint64_t UnitInMilliseconds(std::wstring_view unit) {
  if (unit == L"ms") return 1;
  if (unit == L"s") return 1000;
  if (unit == L"m") return 60'000;
  if (unit == L"h") return 3'600'000;
  if (unit == L"d") return 86'400'000;
  return 0;
}

}  // namespace

bool IntervalTextMatches(std::wstring_view text, const std::wstring& pattern) {
  return text.size() <= kLongestIntervalText && std::regex_match(text.begin(), text.end(), std::wregex(pattern));
}

std::uint64_t GetIntervalInMillisecondsGivenRegex(std::wstring_view text, const std::wstring& pattern) {
  if (!IntervalTextMatches(text, pattern)) return 0;
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t count = 0;
  std::size_t at = 0;
  for (; at < text.size() && text[at] >= L'0' && text[at] <= L'9'; ++at) {
    const auto digit = static_cast<std::uint64_t>(text[at] - L'0');
    if (count > (kMost - digit) / 10) return 0;
    count = count * 10 + digit;
  }
  const std::uint64_t unit = UnitInMilliseconds(text.substr(at));
  if (unit == 0 || count > kMost / unit) return 0;
  return count * unit;
}

}  // namespace TVK::utility
