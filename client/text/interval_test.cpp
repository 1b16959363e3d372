#include "client/text/interval.h"

#include <gtest/gtest.h>

using TVK::utility::GetIntervalInMillisecondsGivenRegex;

TEST(IntervalTest, ReadsWhatThePatternAdmitsAndNothingElse) {
  struct Row {
    const wchar_t* text;
    const wchar_t* pattern;
    std::uint64_t milliseconds;
  };
  const wchar_t* const kLong = L"^\\d+(m|h|d)$";
  const wchar_t* const kShort = L"^\\d+(ms|s|m)$";
  for (const Row& row : {
           Row{L"1m", kLong, 60000},
           Row{L"2h", kLong, 7200000},
           Row{L"1d", kLong, 86400000},
           Row{L"3s", kShort, 3000},
           Row{L"", kLong, 0},
           Row{L"90s", kLong, 0},
           Row{L"-1m", kLong, 0},
           Row{L"1 m", kLong, 0},
           Row{L"1m\n", kLong, 0},
           Row{L"1M", kLong, 0},
           Row{L"18446744073709551615ms", kShort, 18446744073709551615u},
           Row{L"18446744073709551616ms", kShort, 0},
           Row{L"18446744073709551615d", kLong, 0},
           Row{L"00000000000000000000000000000001m", kLong, 0},
       }) {
    SCOPED_TRACE(testing::Message() << std::wstring(row.text).c_str());
    EXPECT_EQ(GetIntervalInMillisecondsGivenRegex(row.text, row.pattern), row.milliseconds);
  }
}
