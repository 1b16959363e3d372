// How a dataset's settings are described: once, for the monitor that obeys them and for the person who asks what a
// policy means. Settings are texts of the policy; a value that is missing or wrong gives way to a default, and the
// reading says why. Pure functions; any thread may call them.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace TVK {

/// Keys and values of one dataset, as the policy holds them.
using SettingTexts = std::map<std::wstring, std::wstring>;

/// What became of one setting.
struct SettingReading {
  std::wstring key;
  std::wstring value_in_force;  ///< "1m", "90", "10ms"; "none" when nothing is.
  bool from_policy = false;     ///< False: the default is in force.
  std::wstring reason;   ///< Why the policy's value is not in force: "missing", "\"101\" is above 100". Else empty.
  bool mistake = false;  ///< The policy holds something for this key that cannot be used.
  std::wstring meaning;  ///< What the setting does, for people. Empty for a key that nothing reads.
};

/// A setting that is a time, such as "5m".
struct IntervalSetting {
  std::wstring key;
  std::wstring pattern;          ///< What texts are admitted, as GetIntervalInMillisecondsGivenRegex takes it.
  std::uint64_t default_ms = 0;  ///< 0: none; the setting then is 0 unless the policy gives it.
  std::uint64_t least_ms = 1;
  std::uint64_t most_ms = UINT32_MAX;  ///< What the monitors' 32-bit milliseconds hold.
  std::wstring meaning;

  /// The value in force, milliseconds.
  std::uint64_t Read(const SettingTexts& settings, SettingReading& reading) const;
  /// As Read, but a value below least_ms, which cannot be used, is given as it is: who refuses it says so.
  std::uint64_t ReadAlsoShorter(const SettingTexts& settings, SettingReading& reading) const;
  /// The reading of a default that is in force for a reason outside of this setting.
  SettingReading Default(const std::wstring& reason) const;
};

/// A setting that is a whole number: digits only.
struct IntegerSetting {
  std::wstring key;
  int default_value = 0;
  int least = 0;  ///< Not negative.
  int most = INT32_MAX;
  std::wstring meaning;

  int Read(const SettingTexts& settings, SettingReading& reading) const;
};

/// Adds a mistake for each key of `settings` that `readings` does not hold.
void AddUnknownSettings(const SettingTexts& settings, std::vector<SettingReading>& readings);

}  // namespace TVK
