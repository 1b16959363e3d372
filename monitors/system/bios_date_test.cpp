#include "monitors/system/bios_date.h"

#include <gtest/gtest.h>

#include "testing/log_capture.h"

namespace {

TEST(BiosDateTest, ConvertsWhatIsADateAndLogsWhatIsNot) {
  LogCapture lines;
  TVK::Log log;
  TVK::utility::InitLog(log, L"SystemBiosEventMonitor.log", 4);
  struct Row {
    const wchar_t* date;
    const wchar_t* converted;
    bool logged;
  };
  for (const Row& row : {
           Row{L"03/31/2024", L"2024-03-31", false},
           Row{L"12/01/1999", L"1999-12-01", false},
           Row{L"", L"", false},
           Row{L"03/31/24", L"03/31/24", true},
           Row{L"13/01/2024", L"13/01/2024", true},
           Row{L"00/10/2024", L"00/10/2024", true},
           Row{L"01/32/2024", L"01/32/2024", true},
           Row{L"01/00/2024", L"01/00/2024", true},
           Row{L"2024-03-31", L"2024-03-31", true},
           Row{L"03/31/2024 ", L"03/31/2024 ", true},
           Row{L"0a/31/2024", L"0a/31/2024", true},
           Row{L"Not Specified", L"Not Specified", true},
       }) {
    SCOPED_TRACE(testing::PrintToString(std::wstring(row.date)));
    lines.Clear();
    EXPECT_EQ(ConvertDateFormat(row.date, log), row.converted);
    EXPECT_EQ(lines.Count(L"\"" + std::wstring(row.date) + L"\" is no date of the form mm/dd/yyyy"), row.logged);
    EXPECT_EQ(lines.Lines().size(), row.logged);
  }
}

}  // namespace
