// The settings of the datasets of drives' self-tests. Pure functions; any thread.
#pragma once

#include "framework/dataset_settings.h"

namespace TVK {

inline constexpr std::uint32_t kLeastSelfTestIntervalMs = 86'400'000;  ///< A day: a test wears and slows the drive.

/// The texts of days, which both datasets take, and those of less, which the one of NVMe drives takes too.
inline constexpr wchar_t kRegexForDays[] = L"^\\d+(d)$";
inline constexpr wchar_t kRegexForLess[] = L"^\\d+(ms|s|m|h)$";

struct SelfTestSettings {
  std::uint32_t interval_ms = 0;  ///< 0: none is asked for.
  bool raised = false;            ///< What was asked for was shorter than a day, or nothing that can be read.
  std::vector<SettingReading> readings;
};

/// An interval below kLeastSelfTestIntervalMs is given as it is, to be refused.
SelfTestSettings ReadNvmeSelfTestSettings(const SettingTexts& settings);

/// An interval below kLeastSelfTestIntervalMs, and a text that is none, are raised to it; one above 32 bits is refused,
/// and without one none is asked for.
SelfTestSettings ReadSataSelfTestSettings(const SettingTexts& settings);

}  // namespace TVK
