#include "monitors/logs/reading_begin.h"

#include <algorithm>
#include <charconv>
#include <chrono>

#include "client/text/string.h"

namespace TVK {
namespace {

constexpr std::wstring_view kSince = L"since ";
constexpr std::wstring_view kBegun = L"begun ";
static_assert(kSince.size() == kBegun.size());

std::wstring Text(std::wstring_view word, std::int64_t seconds, std::wstring_view place) {
  std::wstring text = std::wstring(word) + std::to_wstring(seconds);
  if (!place.empty()) text.append(L" ").append(place);
  return text;
}

}  // namespace

std::wstring SinceText(std::int64_t seconds, std::wstring_view place) {
  return Text(kSince, seconds, place);
}

std::wstring BegunText(std::int64_t seconds, std::wstring_view place) {
  return Text(kBegun, seconds, place);
}

std::optional<ReadingBegin> ReadBegin(std::wstring_view kept) {
  ReadingBegin begin{.begun = kept.starts_with(kBegun)};
  if (!begin.begun && !kept.starts_with(kSince)) return std::nullopt;
  kept.remove_prefix(kSince.size());
  const std::string digits = String::UTF16ToUTF8(std::wstring(kept.substr(0, kept.find(L' '))));
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), begin.seconds);
  if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  begin.place = kept.substr(std::min(digits.size() + 1, kept.size()));
  return begin;
}

std::int64_t FirstSecondOfConsent(const platform::Clock& clock) {
  return std::chrono::ceil<std::chrono::seconds>(clock.Now()).time_since_epoch().count();
}

}  // namespace TVK
