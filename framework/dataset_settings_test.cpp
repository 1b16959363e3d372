#include "framework/dataset_settings.h"

#include <gtest/gtest.h>

namespace TVK {
namespace {

template <typename Setting>
struct Row {
  const Setting& setting;
  const wchar_t* text;
  std::uint64_t value;
  const wchar_t* reason;
};

/// Reads each text under the key that all settings here have.
template <typename Setting, std::size_t kRows>
void ExpectReadings(const Row<Setting> (&rows)[kRows]) {
  for (const Row<Setting>& row : rows) {
    SCOPED_TRACE(row.text);
    SettingReading reading;
    EXPECT_EQ(static_cast<std::uint64_t>(row.setting.Read({{L"K", row.text}}, reading)), row.value);
    EXPECT_EQ(reading.reason, row.reason);
    EXPECT_EQ(reading.from_policy, reading.reason.empty());
    EXPECT_EQ(reading.mistake, !reading.reason.empty());
  }
}

TEST(DatasetSettingsTest, IntervalsAreReadOrExplained) {
  const IntervalSetting report{L"K", L"^\\d+(m|h|d)$", 0, 60000, UINT32_MAX, L"meaning"};
  const IntervalSetting peak{L"K", L"^\\d+(ms|s|m)$", 10, 1, 60000, L"meaning"};
  ExpectReadings<IntervalSetting>({
      {report, L"49d", 4233600000, L""},
      {report, L"50d", 0, L"\"50d\" is above 4294967295ms"},
      {report, L"0m", 0, L"\"0m\" is below 60000ms"},
      {report, L"5x", 0, L"\"5x\" does not match ^\\d+(m|h|d)$"},
      {report, L"99999999999999999999d", 0, L"\"99999999999999999999d\" is above 4294967295ms"},
      {report, L"000000000000000000000000000000000000000000001m", 0,
       L"\"0000000000000000000000000000000000000000...\" is too long for an interval"},
      {peak, L"15ms", 15, L""},
      {peak, L"61s", 10, L"\"61s\" is above 60000ms"},
  });
  SettingReading reading;
  EXPECT_EQ(peak.Read({{L"k", L"1s"}}, reading), 10u);
  EXPECT_EQ(reading.reason, L"missing");
  EXPECT_EQ(reading.value_in_force, L"10ms");
  EXPECT_FALSE(reading.mistake);
}

TEST(DatasetSettingsTest, NumbersAreReadOrExplained) {
  const IntegerSetting percent{L"K", 90, 1, 100, L"meaning"};
  const IntegerSetting widest{L"K", 7, 0, INT32_MAX, L"meaning"};
  ExpectReadings<IntegerSetting>({
      {percent, L"1", 1, L""},
      {percent, L"0100", 100, L""},
      {percent, L"0", 90, L"\"0\" is below 1"},
      {percent, L"18446744073709551617", 90, L"\"18446744073709551617\" is above 100"},
      {percent, L"", 90, L"\"\" is no whole number"},
      {percent, L"+5", 90, L"\"+5\" is no whole number"},
      {percent, L"5%", 90, L"\"5%\" is no whole number"},
      {widest, L"2147483647", INT32_MAX, L""},
      {widest, L"2147483648", 7, L"\"2147483648\" is above 2147483647"},
  });
}

}  // namespace

}  // namespace TVK
