#include "framework/dataset_settings.h"

#include <gtest/gtest.h>

namespace {

TEST(DatasetSettingsTest, IntervalsAreReadOrExplained) {
  const IntervalSetting report{L"K", L"^\\d+(m|h|d)$", 0, 60000, UINT32_MAX, L"meaning"};
  const IntervalSetting peak{L"K", L"^\\d+(ms|s|m)$", 10, 1, 60000, L"meaning"};
  struct Row {
    const IntervalSetting& setting;
    const wchar_t* text;
    std::uint64_t value;
    const wchar_t* in_force;
    const wchar_t* reason;
  };
  for (const Row& row : {
           Row{report, L"49d", 4233600000, L"49d", L""},
           Row{report, L"50d", 0, L"none", L"\"50d\" is above 4294967295ms"},
           Row{report, L"0m", 0, L"none", L"\"0m\" is below 60000ms"},
           Row{report, L"5x", 0, L"none", L"\"5x\" does not match ^\\d+(m|h|d)$"},
           Row{report, L"99999999999999999999d", 0, L"none", L"\"99999999999999999999d\" is above 4294967295ms"},
           Row{report, L"000000000000000000000000000000000000000000001m", 0, L"none",
               L"\"0000000000000000000000000000000000000000...\" is too long for an interval"},
           Row{peak, L"15ms", 15, L"15ms", L""},
           Row{peak, L"0ms", 10, L"10ms", L"\"0ms\" is below 1ms"},
           Row{peak, L"61s", 10, L"10ms", L"\"61s\" is above 60000ms"},
       }) {
    SCOPED_TRACE(row.text);
    SettingReading reading;
    EXPECT_EQ(row.setting.Read({{L"K", row.text}}, reading), row.value);
    EXPECT_EQ(reading.value_in_force, row.in_force);
    EXPECT_EQ(reading.reason, row.reason);
    EXPECT_EQ(reading.from_policy, reading.reason.empty());
    EXPECT_EQ(reading.mistake, !reading.reason.empty());
  }
  SettingReading reading;
  EXPECT_EQ(peak.Read({{L"k", L"1s"}}, reading), 10u);
  EXPECT_EQ(reading.reason, L"missing");
  EXPECT_FALSE(reading.mistake);
}

TEST(DatasetSettingsTest, NumbersAreReadOrExplained) {
  const IntegerSetting percent{L"K", 90, 1, 100, L"meaning"};
  const IntegerSetting widest{L"K", 7, 0, INT32_MAX, L"meaning"};
  struct Row {
    const IntegerSetting& setting;
    const wchar_t* text;
    int value;
    const wchar_t* reason;
  };
  for (const Row& row : {
           Row{percent, L"1", 1, L""},
           Row{percent, L"0100", 100, L""},
           Row{percent, L"0", 90, L"\"0\" is below 1"},
           Row{percent, L"101", 90, L"\"101\" is above 100"},
           Row{percent, L"18446744073709551617", 90, L"\"18446744073709551617\" is above 100"},
           Row{percent, L"", 90, L"\"\" is no whole number"},
           Row{percent, L"+5", 90, L"\"+5\" is no whole number"},
           Row{percent, L"-5", 90, L"\"-5\" is no whole number"},
           Row{percent, L"5%", 90, L"\"5%\" is no whole number"},
           Row{widest, L"2147483647", INT32_MAX, L""},
           Row{widest, L"2147483648", 7, L"\"2147483648\" is above 2147483647"},
       }) {
    SCOPED_TRACE(row.text);
    SettingReading reading;
    EXPECT_EQ(row.setting.Read({{L"K", row.text}}, reading), row.value);
    EXPECT_EQ(reading.reason, row.reason);
    EXPECT_EQ(reading.from_policy, reading.reason.empty());
    EXPECT_EQ(reading.mistake, !reading.reason.empty());
  }
}

}  // namespace
