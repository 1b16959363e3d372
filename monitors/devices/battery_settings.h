// The settings of the battery dataset.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "framework/dataset_settings.h"

namespace TVK {

struct BatterySettings {
  std::uint32_t read_usage_interval_ms = 0;  ///< Period of the usage report; 0: none is made.
  /// At or below this charge, in percent, a battery is near empty; absent: when the system says that it is low.
  std::optional<int> low_threshold = 10;
  /// At or above this charge, in percent, a battery is near full; absent: when the system says that it is high.
  std::optional<int> full_threshold = 90;
  std::vector<SettingReading> readings;  ///< One for each key, and for each that is unknown.
};

/// Reads the dataset's settings out of the policy's texts. "ReadUsageInterval" has no default: missing or wrong, it is
/// 0. "BatteryLowThreshold" is 1..20 and "BatteryFullThreshold" 80..99, or "auto" for what the system says. Any thread.
BatterySettings ReadBatterySettings(const SettingTexts& settings);

}  // namespace TVK
