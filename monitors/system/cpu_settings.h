// The settings of the CPU dataset.
#pragma once

#include <cstdint>
#include <vector>

#include "framework/dataset_settings.h"

namespace TVK {

struct CpuSettings {
  std::uint32_t read_usage_interval_ms = 0;       ///< Period of the usage report; 0: none is made.
  std::int32_t peak_threshold_percent = 90;       ///< 1..100.
  std::uint32_t peak_threshold_duration_ms = 10;  ///< 1..60000.
  std::vector<SettingReading> readings;           ///< One for each key, and for each that is unknown.
};

/// Reads the dataset's settings out of the policy's texts. "ReadUsageInterval" has no default: missing or wrong, it is
/// 0. Without "CPUPeakThreshold" the threshold and the duration both return to their defaults. Any thread.
CpuSettings ReadCpuSettings(const SettingTexts& settings);

}  // namespace TVK
