#include "monitors/system/memory_settings.h"

#include "monitors/system/memory_event_monitor.h"

namespace TVK {

namespace {

SettingReading ReadChangeEvent(const SettingTexts& settings, std::optional<bool>& enabled) {
  const std::wstring key = L"MemoryChangeEvent";
  const std::wstring meaning = L"whether a change of the memory load is reported";
  const auto found = settings.find(key);
  if (found == settings.end()) {
    enabled = true;
    return {key, L"on", false, L"missing", false, meaning};
  }
  if (found->second == L"disable") {
    enabled = false;
    return {key, found->second, true, {}, false, meaning};
  }
  return {key, L"as before", false, L"only \"disable\" is known; leave the key out to turn it on", true, meaning};
}

}  // namespace

MemorySettings ReadMemorySettings(const SettingTexts& settings) {
  MemorySettings result;
  SettingReading interval;
  result.read_usage_interval_ms = ReadUsageInterval(MemoryEventMonitor::regexForReadUsageInterval, settings, interval);
  result.readings = {interval, ReadChangeEvent(settings, result.change_event_enabled)};
  AddUnknownSettings(settings, result.readings);
  return result;
}

}  // namespace TVK
