#include "monitors/system/cpu_settings.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

TEST(CpuSettingsTest, ThresholdCarriesTheDuration) {
  struct Row {
    SettingTexts settings;
    std::uint32_t interval;
    std::int32_t threshold;
    std::uint32_t duration;
    std::size_t mistakes;
  };
  for (const Row& row : {
           Row{{}, 0, 90, 10, 0},
           Row{{{L"ReadUsageInterval", L"1h"}, {L"CPUPeakThreshold", L"50"}, {L"CPUPeakThresholdDuration", L"2s"}},
               3600000,
               50,
               2000,
               0},
           Row{{{L"CPUPeakThresholdDuration", L"2s"}}, 0, 90, 10, 0},
           Row{{{L"CPUPeakThreshold", L"500"}, {L"CPUPeakThresholdDuration", L"2s"}}, 0, 90, 2000, 1},
           Row{{{L"readUsageInterval", L"1m"}, {L"ReadUsageInterval", L"30s"}}, 0, 90, 10, 2},
       }) {
    const CpuSettings read = ReadCpuSettings(row.settings);
    EXPECT_EQ(read.read_usage_interval_ms, row.interval);
    EXPECT_EQ(read.peak_threshold_percent, row.threshold);
    EXPECT_EQ(read.peak_threshold_duration_ms, row.duration);
    EXPECT_EQ(static_cast<std::size_t>(std::ranges::count_if(read.readings, &SettingReading::mistake)), row.mistakes);
  }
}

}  // namespace
