#include "monitors/logs/windows_logs_settings.h"

#include <algorithm>
#include <functional>

namespace TVK {
namespace {

constexpr wchar_t kAllLevels[] = L"00000000";
constexpr wchar_t kOneChannel[] = L"0001";

/// A setting that is a text, and why it cannot be used; empty when it can.
struct TextSetting {
  const wchar_t* key;
  const wchar_t* default_value;
  std::function<std::wstring(const std::wstring&)> fault_of;
  const wchar_t* meaning;

  std::wstring Read(const SettingTexts& settings, SettingReading& reading) const {
    reading = {key, default_value[0] == 0 ? L"none" : default_value, false, L"missing", false, meaning};
    const auto found = settings.find(key);
    if (found == settings.end()) return default_value;
    reading.reason = fault_of(found->second);
    reading.mistake = !reading.reason.empty();
    if (reading.mistake) return default_value;
    reading.value_in_force = found->second.empty() ? L"none" : found->second;
    reading.from_policy = true;
    return found->second;
  }
};

std::wstring FaultOf(const std::wstring& channels, const std::wstring& ids, const std::wstring& levels) {
  EventLogSelection selection;
  std::wstring fault;
  WindowsLogsHelper::ReadSelection(channels, ids, levels, selection, fault);
  return fault;
}

// Never destroyed, as the next ones: settings are read until the process ends.
const TextSetting& Channels() {
  static const auto* const setting =
      new TextSetting{L"Channels", L"1001", [](const auto& text) { return FaultOf(text, L"", kAllLevels); },
                      L"which logs, from the right: Application, Security, Setup, System"};
  return *setting;
}

const TextSetting& EventIds() {
  static const auto* const setting =
      new TextSetting{L"EventIds", L"", [](const auto& text) { return FaultOf(kOneChannel, text, kAllLevels); },
                      L"ids and ranges of ids that are recorded, with \"-\" before those that are not; none: all"};
  return *setting;
}

const TextSetting& LogLevels() {
  static const auto* const setting =
      new TextSetting{L"LogLevels", L"00000011", [](const auto& text) { return FaultOf(kOneChannel, L"", text); },
                      L"which levels, from the right: Critical, Error, Warning, Information, Verbose; none: all"};
  return *setting;
}

const IntervalSetting& TimeRange() {
  static const auto* const setting = new IntervalSetting{
      .key = L"TimeRange",
      .pattern = L"^\\d+(m|h|d)$",
      .default_ms = 24ull * 3600 * 1000,
      .least_ms = 60'000,
      .meaning =
          L"how old an event may be when it is read: what happened before, as while the service was off, is not "
          L"recorded"};
  return *setting;
}

const IntegerSetting& EventsPerMinute() {
  static const auto* const setting = new IntegerSetting{
      L"EventsPerMinute", 60, 1, 6000, L"events that are recorded in a minute; those beyond are counted"};
  return *setting;
}

}  // namespace

WindowsLogsSettings ReadWindowsLogsSettings(const SettingTexts& settings) {
  WindowsLogsSettings result;
  std::vector<SettingReading> readings(5);
  const std::wstring channels = Channels().Read(settings, readings[0]);
  result.event_ids = EventIds().Read(settings, readings[1]);
  std::erase(result.event_ids, L' ');
  const std::wstring levels = LogLevels().Read(settings, readings[2]);
  result.time_range_ms = TimeRange().Read(settings, readings[3]);
  result.events_per_minute = static_cast<std::uint32_t>(EventsPerMinute().Read(settings, readings[4]));
  // Each by itself is good, and so are all together.
  std::wstring fault;
  WindowsLogsHelper::ReadSelection(channels, result.event_ids, levels, result.selection, fault);
  WindowsLogsHelper::generateQuery(channels, result.event_ids, levels, result.time_range_ms, result.query);
  result.readings = std::move(readings);
  AddUnknownSettings(settings, result.readings);
  return result;
}

}  // namespace TVK
