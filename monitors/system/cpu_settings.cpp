#include "monitors/system/cpu_settings.h"

#include "monitors/system/cpu_event_monitor.h"

namespace TVK {

namespace {

// Never destroyed, as the next one: settings are read until the process ends.
const IntegerSetting& PeakThreshold() {
  static const auto* const setting =
      new IntegerSetting{L"CPUPeakThreshold", 90, 1, 100, L"percent of use from which a sample is a peak"};
  return *setting;
}

// A check that spans more than a minute would hold back every check due in between.
const IntervalSetting& PeakThresholdDuration() {
  static const auto* const setting = new IntervalSetting{L"CPUPeakThresholdDuration",
                                                         CpuEventMonitor::regexForCPUPeakThresholdDuration,
                                                         10,
                                                         1,
                                                         60000,
                                                         L"span of the five samples of a peak check"};
  return *setting;
}

}  // namespace

CpuSettings ReadCpuSettings(const SettingTexts& settings) {
  CpuSettings result;
  SettingReading interval;
  SettingReading threshold;
  SettingReading duration;
  result.read_usage_interval_ms = ReadUsageInterval(CpuEventMonitor::regexForReadUsageInterval, settings, interval);
  result.peak_threshold_percent = PeakThreshold().Read(settings, threshold);
  if (!settings.contains(PeakThreshold().key) && settings.contains(PeakThresholdDuration().key)) {
    duration = PeakThresholdDuration().Default(L"CPUPeakThreshold is missing, which resets both");
  } else {
    result.peak_threshold_duration_ms = static_cast<std::uint32_t>(PeakThresholdDuration().Read(settings, duration));
  }
  result.readings = {interval, threshold, duration};
  AddUnknownSettings(settings, result.readings);
  return result;
}

}  // namespace TVK
