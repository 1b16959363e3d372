#include "monitors/storage/store_settings.h"

#include "monitors/storage/store_event_monitor.h"

namespace TVK {

StoreSettings ReadStoreSettings(const SettingTexts& settings) {
  StoreSettings result;
  SettingReading interval;
  result.read_usage_interval_ms = ReadUsageInterval(StoreEventMonitor::regexForReadUsageInterval, settings, interval);
  result.readings = {interval};
  AddUnknownSettings(settings, result.readings);
  return result;
}

}  // namespace TVK
