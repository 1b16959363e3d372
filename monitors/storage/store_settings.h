// The settings of the storage dataset.
#pragma once

#include <cstdint>
#include <vector>

#include "framework/dataset_settings.h"

namespace TVK {

struct StoreSettings {
  std::uint32_t read_usage_interval_ms = 0;  ///< Period of the looks at the volumes; 0: none after the start's.
  std::vector<SettingReading> readings;      ///< One for each key, and for each that is unknown.
};

/// Reads the dataset's settings out of the policy's texts. "ReadUsageInterval" has no default: missing or wrong, it is
/// 0. Any thread.
StoreSettings ReadStoreSettings(const SettingTexts& settings);

}  // namespace TVK
