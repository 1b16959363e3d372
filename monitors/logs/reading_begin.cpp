#include "monitors/logs/reading_begin.h"

#include <algorithm>
#include <charconv>
#include <chrono>

#include "client/text/string.h"

namespace TVK {
namespace {

constexpr std::wstring_view kSince = L"since ";

}  // namespace

std::wstring SinceText(std::int64_t seconds, std::wstring_view place) {
  std::wstring text = std::wstring(kSince) + std::to_wstring(seconds);
  if (!place.empty()) text.append(L" ").append(place);
  return text;
}

std::optional<std::int64_t> ReadSince(std::wstring_view kept, std::wstring* place) {
  if (!kept.starts_with(kSince)) return std::nullopt;
  kept.remove_prefix(kSince.size());
  const std::string digits = String::UTF16ToUTF8(std::wstring(kept.substr(0, kept.find(L' '))));
  std::int64_t seconds = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), seconds);
  if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  if (place != nullptr) *place = kept.substr(std::min(digits.size() + 1, kept.size()));
  return seconds;
}

std::int64_t FirstSecondOfConsent(const platform::Clock& clock) {
  return std::chrono::ceil<std::chrono::seconds>(clock.Now()).time_since_epoch().count();
}

}  // namespace TVK
