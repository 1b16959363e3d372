#include "client/records/record_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "client/records/json_line.h"
#include "client/records/record_json.h"
#include "client/text/cells.h"
#include "client/text/string.h"
#include "platform/simulated/virtual_runtime.h"

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

TEST(RecordText, FitsTheWidthInCells) {
  const std::string wide = "\u65E5\u672C";  // two cells each
  const std::string json = CpuEvent({{L"a", String::UTF8ToUTF16(wide + wide + wide + wide + wide + wide + wide)},
                                     {L"b", std::wstring(30, L'x') + L" " + std::wstring(70, L'y')},
                                     {L"e\u0301", L"1"},
                                     {L"list", LR"([{"size":"8 GB","slot":1},"\u202E",[2]])"},
                                     {L"none", L"[]"}});
  EXPECT_EQ(RecordTableLine(RecordKind::kItem, json, {.times = {}, .width = 60}),
            "2026-01-31 09:05:00  CPUEvent        ReadUsagePerInterval\n"
            "    a=" +
                wide + wide + wide + wide + wide + wide + wide +
                "\n"
                "    b=xxxxxxxxxxxxxxxxxxxxxxxxxxxxxx\n"
                "      yyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyy\n"
                "      yyyyyyyyyyyyyyyy e\u0301=1\n"
                "    list:\n"
                "      size=8 GB, slot=1\n"
                "      ?\n"
                "      [2]\n"
                "    none=[]\n");
  for (const std::size_t width : {1u, 20u, 60u, 80u, 100u, 200u}) {
    std::istringstream lines(RecordTableHeader({.times = {}, .width = width}) +
                             RecordTableLine(RecordKind::kItem, json, {.times = {}, .width = width}));
    for (std::string line; std::getline(lines, line);) {
      EXPECT_LE(CellsOf(line), std::max<std::size_t>(width, 20)) << line;
      EXPECT_FALSE(line.ends_with(' ')) << line;
    }
  }
}

TEST(RecordText, TimesAreInTheZoneThatTheHeaderNames) {
  platform::VirtualRuntime world;
  const std::string json = CpuEvent({});
  const auto time = [&](const RecordTimes& times) {
    return RecordTableHeader({.times = times, .width = 120}).substr(0, 19) +
           RecordTableLine(RecordKind::kItem, json, {.times = times, .width = 120}).substr(0, 19);
  };
  EXPECT_EQ(time({}), "TIME               2026-01-31 09:05:00");
  EXPECT_EQ(time({RecordZone::kUtc, &world.clock()}), "TIME (UTC)         2026-01-31 08:05:00");
  EXPECT_EQ(time({RecordZone::kLocal, &world.clock()}), "TIME (local time)  2026-01-31 08:05:00");
  EXPECT_TRUE(RecordCsvLine(RecordKind::kItem, json, {RecordZone::kUtc, &world.clock()})
                  .starts_with("2026-01-31T08:05:00+0000,"));
}

TEST(JsonLine, TakesObjectsOnOneLineAlone) {
  for (const char* const yes :
       {"{}", R"( {"a":"b","c":[1,-0.5e+3,{}],"d":null} )", R"({"\u00e9\\":"\"long enough to be skipped\/"})"})
    EXPECT_TRUE(IsJsonObjectLine(yes)) << yes;
  for (const char* const no : {"", "[]", "{", "{}x", "{\n}", "{\"a\"}", "{\"a\":}", "{\"a\":1,}", "{\"a\":01}",
                               "{\"a\":1.}", "{\"a\":tru}", "{\"a\":[1}", "{\"a\":\"\\x\"}", "{\"a\":\"\\u12g4\"}",
                               "{\"a\":\"tab\there, and more\"}", "{\"a\":\"never ends"})
    EXPECT_FALSE(IsJsonObjectLine(no)) << no;
}

TEST(RecordText, ValuesCannotSteerTheTerminal) {
  const std::string json = CpuEvent({{L"x", L"\x1B[2J\n\u009Bm\u00E9\u202E"}});
  const std::string line = RecordTableLine(RecordKind::kItem, json);
  EXPECT_NE(line.find("x=?[2J??m\u00E9?\n"), std::string::npos) << line;
  const std::string harmless = HarmlessJson(json);
  EXPECT_NE(harmless.find("\\u009bm\u00E9\\u202e"), std::string::npos) << harmless;
  EXPECT_EQ(ItemEventFromJson(harmless)->item_data(), ItemEventFromJson(json)->item_data());
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
