// The settings of the dataset of logged events.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "framework/dataset_settings.h"
#include "monitors/logs/windows_logs_helper.h"

namespace TVK {

struct WindowsLogsSettings {
  EventLogSelection selection;
  std::wstring query;                    ///< Of it, and of the events of `time_range_ms`.
  std::wstring event_ids;                ///< As the policy has them, without blanks; empty: all.
  std::uint64_t time_range_ms = 0;       ///< At least a minute.
  std::uint32_t events_per_minute = 0;   ///< Recorded at most; 1..6000.
  std::vector<SettingReading> readings;  ///< One for each key, and for each that is unknown.
};

/// Reads the dataset's settings out of the policy's texts: "Channels", "EventIds" and "LogLevels" as WindowsLogsHelper
/// reads them, "TimeRange" ("90m", "12h", "7d"), "EventsPerMinute". Any thread.
WindowsLogsSettings ReadWindowsLogsSettings(const SettingTexts& settings);

}  // namespace TVK
