#include "monitors/devices/battery_settings.h"

#include "monitors/devices/battery_event_monitor.h"

namespace TVK {
namespace {

// Never destroyed, as the next one: settings are read until the process ends.
const IntegerSetting& LowThreshold() {
  static const auto* const setting =
      new IntegerSetting{L"BatteryLowThreshold", 10, 1, 20,
                         L"percent of charge at which a battery is near empty; \"auto\": what the system calls low"};
  return *setting;
}

const IntegerSetting& FullThreshold() {
  static const auto* const setting =
      new IntegerSetting{L"BatteryFullThreshold", 90, 80, 99,
                         L"percent of charge at which a battery is near full; \"auto\": what the system calls high"};
  return *setting;
}

std::optional<int> ReadThreshold(const IntegerSetting& setting, const SettingTexts& settings, SettingReading& reading) {
  const auto found = settings.find(setting.key);
  if (found == settings.end() || found->second != L"auto") return setting.Read(settings, reading);
  reading = {setting.key, L"auto", true, {}, false, setting.meaning};
  return std::nullopt;
}

}  // namespace

BatterySettings ReadBatterySettings(const SettingTexts& settings) {
  BatterySettings result;
  SettingReading interval;
  SettingReading low;
  SettingReading full;
  result.read_usage_interval_ms = ReadUsageInterval(BatteryEventMonitor::regexForReadUsageInterval, settings, interval);
  result.low_threshold = ReadThreshold(LowThreshold(), settings, low);
  result.full_threshold = ReadThreshold(FullThreshold(), settings, full);
  result.readings = {interval, low, full};
  AddUnknownSettings(settings, result.readings);
  return result;
}

}  // namespace TVK
