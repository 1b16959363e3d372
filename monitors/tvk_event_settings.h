// The settings of the dataset of events that other programs hand over.
#pragma once

#include <cstddef>
#include <vector>

#include "framework/dataset_settings.h"

namespace TVK {

struct TvkEventSettings {
  std::size_t events_per_hour = 0;
  bool users_may_send = false;           ///< Not administrators alone.
  std::vector<SettingReading> readings;  ///< One for each key, and for each that is unknown.
};

/// Reads the dataset's settings out of the policy's texts: "EventsPerHour", a whole number, and "Senders",
/// "administrators" or "users". Any thread.
TvkEventSettings ReadTvkEventSettings(const SettingTexts& settings);

}  // namespace TVK
