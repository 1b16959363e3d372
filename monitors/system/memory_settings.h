// The settings of the memory dataset.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "framework/dataset_settings.h"

namespace TVK {

struct MemorySettings {
  std::uint32_t read_usage_interval_ms = 0;  ///< Period of the usage report; 0: none is made.
  std::optional<bool> change_event_enabled;  ///< Absent: it stays as it was.
  std::vector<SettingReading> readings;      ///< One for each key, and for each that is unknown.
};

/// Reads the dataset's settings out of the policy's texts. "ReadUsageInterval" has no default: missing or wrong, it is
/// 0. "MemoryChangeEvent" is exactly "disable" to turn the change event off, and missing to turn it on; any other text
/// is a mistake and leaves it as it was. Any thread.
MemorySettings ReadMemorySettings(const SettingTexts& settings);

}  // namespace TVK
