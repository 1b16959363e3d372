#include "monitors/storage/self_test_settings.h"

#include "client/text/interval.h"

namespace TVK {
namespace {

constexpr wchar_t kKey[] = L"RunSelfTestInterval";

IntervalSetting Interval(const std::wstring& pattern) {
  return {kKey, pattern, 0, kLeastSelfTestIntervalMs, UINT32_MAX, L"period of the drives' short self-tests"};
}

std::wstring DaysOrLess() {
  return std::wstring(kRegexForDays) + L'|' + kRegexForLess;
}

SelfTestSettings SettingsOf(std::uint64_t interval_ms, SettingReading reading, const SettingTexts& settings) {
  SelfTestSettings result;
  result.interval_ms = static_cast<std::uint32_t>(interval_ms);
  result.readings = {std::move(reading)};
  AddUnknownSettings(settings, result.readings);
  return result;
}

}  // namespace

SelfTestSettings ReadNvmeSelfTestSettings(const SettingTexts& settings) {
  SettingReading reading;
  const std::uint64_t interval = Interval(DaysOrLess()).ReadAlsoShorter(settings, reading);
  return SettingsOf(interval, std::move(reading), settings);
}

SelfTestSettings ReadSataSelfTestSettings(const SettingTexts& settings) {
  SettingReading reading;
  const std::uint64_t interval = Interval(kRegexForDays).Read(settings, reading);
  SelfTestSettings result = SettingsOf(interval, std::move(reading), settings);
  const auto text = settings.find(kKey);
  if (result.interval_ms != 0 || text == settings.end()) return result;
  // One that is too long is no short one.
  if (utility::GetIntervalInMillisecondsGivenRegex(text->second, kRegexForDays) > UINT32_MAX) return result;
  result.raised = true;
  result.interval_ms = kLeastSelfTestIntervalMs;
  result.readings.front().value_in_force = L"1d";
  return result;
}

}  // namespace TVK
