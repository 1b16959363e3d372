#include "client/policy/eligibility_filter.h"

#include <algorithm>
#include <compare>
#include <string_view>
#include <tuple>

#include "client/text/string.h"

namespace {

// The next character's start; `text` is well-formed UTF-8.
std::size_t Next(std::string_view text, std::size_t at) {
  do {
    ++at;
  } while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80);
  return at;
}

// On UTF-8, so that '?' stands for one character whatever the width of the system's wide characters. Only the last '*'
// is ever tried again, so that no pattern takes more than pattern times text steps.
bool MatchesPattern(std::string_view text, std::string_view pattern) {
  std::size_t t = 0;
  std::size_t p = 0;
  std::size_t star = std::string_view::npos;
  std::size_t star_text = 0;
  while (t < text.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      star_text = t;
    } else if (p < pattern.size() && pattern[p] == '?') {
      ++p;
      t = Next(text, t);
    } else if (p < pattern.size() && pattern[p] == text[t]) {
      ++p;
      ++t;
    } else if (star != std::string_view::npos) {
      p = star + 1;
      t = star_text = Next(text, star_text);
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

bool MatchesAny(const std::wstring& fact, const std::vector<std::wstring>& patterns) {
  if (patterns.empty()) return true;
  if (fact.empty()) return false;
  const std::string text = TVK::String::UTF16ToUTF8(TVK::String::ToLower(fact));
  return std::ranges::any_of(patterns, [&](const std::wstring& pattern) {
    return MatchesPattern(text, TVK::String::UTF16ToUTF8(TVK::String::ToLower(pattern)));
  });
}

// Of a text that stands in a policy or in the machine, what is told.
constexpr std::size_t kLongestTold = 64;

// Of a list that may be as long as the document, the first few.
std::wstring Joined(const std::vector<std::wstring>& patterns) {
  constexpr std::size_t kMost = 4;
  std::wstring text;
  for (std::size_t i = 0; i < patterns.size() && i < kMost; ++i)
    text += (i == 0 ? L"" : L", ") + patterns[i].substr(0, kLongestTold);
  return patterns.size() <= kMost ? text : text + L" or " + std::to_wstring(patterns.size() - kMost) + L" more";
}

// The digits at the start of `version` without leading zeros, taken off it with the dot after them.
std::wstring_view TakePart(std::wstring_view& version) {
  const std::size_t end = std::min(version.find_first_not_of(L"0123456789"), version.size());
  std::wstring_view part = version.substr(0, end);
  const bool goes_on = end < version.size() && version[end] == L'.';
  version = goes_on ? version.substr(end + 1) : std::wstring_view();
  part.remove_prefix(std::min(part.find_first_not_of(L'0'), part.size()));
  return part;
}

// Part by part; a part that is absent counts as 0. Text after the dotted numbers ("22.04.3 LTS") does not count.
std::strong_ordering CompareVersions(std::wstring_view a, std::wstring_view b) {
  while (!a.empty() || !b.empty()) {
    const std::wstring_view part_a = TakePart(a);
    const std::wstring_view part_b = TakePart(b);
    if (part_a.size() != part_b.size()) return part_a.size() <=> part_b.size();
    if (const int order = part_a.compare(part_b); order != 0) return order <=> 0;
  }
  return std::strong_ordering::equal;
}

bool StartsWithDigit(const std::wstring& version) {
  return !version.empty() && version[0] >= L'0' && version[0] <= L'9';
}

}  // namespace

std::optional<TVK::UnmetCondition> EligibilityFilter::FindUnmet(const ApplicabilityFilter& filter) const {
  for (const auto& [trait, fact, patterns] : {std::tuple(L"model", &traits_.model, &filter.models),
                                              {L"manufacturer", &traits_.manufacturer, &filter.manufacturers},
                                              {L"brand", &traits_.brand, &filter.brands},
                                              {L"osName", &traits_.os_name, &filter.os_names}}) {
    if (!MatchesAny(*fact, *patterns))
      return TVK::UnmetCondition{trait, fact->substr(0, kLongestTold), Joined(*patterns)};
  }
  constexpr std::wstring_view kVersion = L"osVersion";
  const std::wstring& version = traits_.os_version;
  const bool known = StartsWithDigit(version);
  const std::wstring& least = filter.os_version_min;
  if (!least.empty() && !(known && std::is_gteq(CompareVersions(version, least)))) {
    return TVK::UnmetCondition{kVersion, version.substr(0, kLongestTold), L"at least " + least.substr(0, kLongestTold)};
  }
  const std::wstring& most = filter.os_version_max;
  if (!most.empty() && !(known && std::is_lteq(CompareVersions(version, most)))) {
    return TVK::UnmetCondition{kVersion, version.substr(0, kLongestTold), L"at most " + most.substr(0, kLongestTold)};
  }
  return std::nullopt;
}
