#include "client/records/record_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "client/records/record_json.h"

namespace TVK {
namespace {

std::string CpuEvent(const ItemData& data) {
  ItemEvent event;
  event.set_item_time(L"2026-01-31T09:05:00+0100");
  event.set_dataset_name(L"CPUEvent");
  event.set_item_name(L"ReadUsagePerInterval");
  event.set_dataset_context_id(L"C1");
  event.set_item_data(data);
  return ToJson(event);
}

TEST(RecordText, TableLineHasTimeDatasetItemAndData) {
  EXPECT_EQ(RecordTableLine(RecordKind::kItem, CpuEvent({{L"usage", L"5"}, {L"peak", L"70"}})),
            "2026-01-31 09:05:00  CPUEvent            ReadUsagePerInterval    peak=70 usage=5\n");
  EXPECT_EQ(RecordTableHeader(), "TIME                 DATASET             ITEM                    DATA\n");
}

TEST(RecordText, LongDataGoesOnBelowItsColumn) {
  ItemData data;
  for (wchar_t c = L'a'; c < L'a' + 12; ++c)
    data[std::wstring(3, c)] = std::wstring(8, L'\u00FC');
  std::istringstream lines(RecordTableLine(RecordKind::kItem, CpuEvent(data)));
  std::string line;
  int count = 0;
  for (; std::getline(lines, line); ++count) {
    const auto continued = std::ranges::count_if(line, [](char c) { return (c & 0xC0) == 0x80; });
    EXPECT_LE(line.size() - static_cast<std::size_t>(continued), 120u);
    EXPECT_EQ(line.find('='), 65u + 3u);
  }
  EXPECT_EQ(count, 3);
}

TEST(RecordText, ValuesCannotSteerTheTerminal) {
  const std::string line = RecordTableLine(RecordKind::kItem, CpuEvent({{L"x", L"\x1B[2J\n\u009Bm\u00E9"}}));
  EXPECT_NE(line.find("x=?[2J??m\u00E9\n"), std::string::npos) << line;
  EXPECT_EQ(RecordTableLine(RecordKind::kItem, "broken \x1B[2J"), "broken ?[2J\n");
}

TEST(RecordText, CsvQuotesAsTheRfcWants) {
  EXPECT_EQ(RecordCsvLine(RecordKind::kItem, CpuEvent({{L"a", L"1,2"}})),
            "2026-01-31T09:05:00+0100,item,CPUEvent,ReadUsagePerInterval,C1,\"{\"\"a\"\":\"\"1,2\"\"}\"\r\n");
  DeviceContext device;
  device.set_device_context_id(L"D1");
  device.region_info().set_region_name(L"DE");
  EXPECT_EQ(RecordCsvLine(RecordKind::kDevice, ToJson(device)),
            ",device,,(device context),D1,\"{\"\"region_name\"\":\"\"DE\"\"}\"\r\n");
}

}  // namespace
}  // namespace TVK
