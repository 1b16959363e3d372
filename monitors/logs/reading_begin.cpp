#include "monitors/logs/reading_begin.h"

#include <charconv>
#include <chrono>

#include "client/text/string.h"

namespace TVK {
namespace {

constexpr std::wstring_view kSince = L"since ";

}  // namespace

std::wstring SinceText(std::int64_t seconds) {
  return std::wstring(kSince) + std::to_wstring(seconds);
}

std::optional<std::int64_t> ReadSince(std::wstring_view kept) {
  if (!kept.starts_with(kSince)) return std::nullopt;
  const std::string digits = String::UTF16ToUTF8(std::wstring(kept.substr(kSince.size())));
  std::int64_t seconds = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), seconds);
  if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return seconds;
}

std::int64_t FirstSecondOfConsent(const platform::Clock& clock) {
  return std::chrono::ceil<std::chrono::seconds>(clock.Now()).time_since_epoch().count();
}

}  // namespace TVK
