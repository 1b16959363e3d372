#include "framework/dataset_settings.h"

#include <algorithm>
#include <optional>

#include "client/text/interval.h"
#include "client/text/nearest_text.h"

namespace TVK {

namespace {

std::wstring Quote(const std::wstring& text) {
  constexpr std::size_t kMost = 40;  // of a text that may be as long as the document
  return L"\"" + (text.size() <= kMost ? text : text.substr(0, kMost) + L"...") + L"\"";
}

std::wstring Milliseconds(std::uint64_t count) {
  return std::to_wstring(count) + L"ms";
}

// The text of the setting, or nothing: `reading` then says that it is missing.
const std::wstring* Find(const SettingTexts& settings, const std::wstring& key, SettingReading& reading) {
  const auto found = settings.find(key);
  if (found != settings.end()) return &found->second;
  reading.reason = L"missing";
  return nullptr;
}

void Accept(const std::wstring& text, SettingReading& reading) {
  reading.value_in_force = text;
  reading.from_policy = true;
}

void Refuse(std::wstring reason, SettingReading& reading) {
  reading.reason = std::move(reason);
  reading.mistake = true;
}

// A text that is admitted but has no value is 0 or more than 64 bits of milliseconds: the digits tell which.
bool IsZero(const std::wstring& text) {
  return text.find_first_of(L"123456789") == std::wstring::npos;
}

// Why `text`, which stands for `ms`, cannot be used; empty when it can.
std::wstring FaultOfInterval(const IntervalSetting& setting, const std::wstring& text, std::uint64_t ms) {
  if (ms == 0) {
    if (text.size() > utility::kLongestIntervalText) return Quote(text) + L" is too long for an interval";
    if (!utility::IntervalTextMatches(text, setting.pattern))
      return Quote(text) + L" does not match " + setting.pattern;
  }
  if (ms == 0 ? !IsZero(text) : ms > setting.most_ms) {
    return Quote(text) + L" is above " + Milliseconds(setting.most_ms);
  }
  if (ms < setting.least_ms) return Quote(text) + L" is below " + Milliseconds(setting.least_ms);
  return {};
}

// Digits only; a number that no setting admits stays at kAboveAll.
std::optional<std::int64_t> ParseDigits(const std::wstring& text) {
  constexpr std::int64_t kAboveAll = std::int64_t{INT32_MAX} + 1;
  if (text.empty() || text.find_first_not_of(L"0123456789") != std::wstring::npos) return std::nullopt;
  std::int64_t value = 0;
  for (const wchar_t c : text)
    value = std::min(value * 10 + (c - L'0'), kAboveAll);
  return value;
}

}  // namespace

SettingReading IntervalSetting::Default(const std::wstring& reason) const {
  return {key, default_ms == 0 ? L"none" : Milliseconds(default_ms), false, reason, false, meaning};
}

std::uint64_t IntervalSetting::Read(const SettingTexts& settings, SettingReading& reading) const {
  reading = Default({});
  const std::wstring* text = Find(settings, key, reading);
  if (text == nullptr) return default_ms;
  const std::uint64_t ms = utility::GetIntervalInMillisecondsGivenRegex(*text, pattern);
  std::wstring fault = FaultOfInterval(*this, *text, ms);
  if (!fault.empty()) {
    Refuse(std::move(fault), reading);
    return default_ms;
  }
  Accept(*text, reading);
  return ms;
}

std::uint64_t IntervalSetting::ReadAlsoShorter(const SettingTexts& settings, SettingReading& reading) const {
  const std::uint64_t value = Read(settings, reading);
  if (!reading.mistake) return value;
  const std::uint64_t given = utility::GetIntervalInMillisecondsGivenRegex(settings.at(key), pattern);
  return given != 0 && given < least_ms ? given : value;
}

int IntegerSetting::Read(const SettingTexts& settings, SettingReading& reading) const {
  reading = {key, std::to_wstring(default_value), false, {}, false, meaning};
  const std::wstring* text = Find(settings, key, reading);
  if (text == nullptr) return default_value;
  const std::optional<std::int64_t> value = ParseDigits(*text);
  if (!value) {
    Refuse(Quote(*text) + L" is no whole number", reading);
  } else if (*value < least) {
    Refuse(Quote(*text) + L" is below " + std::to_wstring(least), reading);
  } else if (*value > most) {
    Refuse(Quote(*text) + L" is above " + std::to_wstring(most), reading);
  } else {
    Accept(*text, reading);
    return static_cast<int>(*value);
  }
  return default_value;
}

void AddUnknownSettings(const SettingTexts& settings, std::vector<SettingReading>& readings) {
  const std::size_t known = readings.size();
  std::vector<std::wstring> keys;
  for (const SettingReading& reading : readings)
    keys.push_back(reading.key);
  for (const auto& [key, text] : settings) {
    const auto end = readings.begin() + static_cast<std::ptrdiff_t>(known);
    if (std::ranges::find(readings.begin(), end, key, &SettingReading::key) != end) continue;
    constexpr std::size_t kMostHints = 100;  // of settings that may be as many as fit into a document
    const std::wstring hint = readings.size() < kMostHints ? DidYouMean(key, keys) : std::wstring();
    readings.push_back({key, L"none", false, L"the dataset has no such setting" + hint, true, {}});
  }
}

}  // namespace TVK
