#include "monitors/logs/event_log_rendering.h"

#include <gtest/gtest.h>

#include "client/text/string.h"
#include "monitors/logs/event_data.h"
#include "platform/simulated/simulated_event_log.h"
#include "platform/simulated/virtual_runtime.h"
#include "testing/log_capture.h"

namespace TVK {
namespace {

using platform::EventLogFailure;
using platform::WallTime;

constexpr std::int64_t kMoment = 1'767'222'000;  // 2025-12-31T23:00:00Z

TEST(EventLogRenderingTest, TimeIsLocalWithItsOffset) {
  for (const auto& [minutes, text] : {std::pair(0, L"2025-12-31T23:00:00+00:00"),
                                      {60, L"2026-01-01T00:00:00+01:00"},
                                      {-210, L"2025-12-31T19:30:00-03:30"},
                                      {-30, L"2025-12-31T22:30:00-00:30"}}) {
    const platform::VirtualRuntime runtime({.utc_offset_minutes = minutes});
    EXPECT_EQ(EventTimeText(kMoment, runtime.clock()), text);
  }
}

TEST(EventLogRenderingTest, EventDataIsCutOut) {
  const auto filled = [](const std::string& filling, std::size_t more) {
    std::string data = "<EventData>";
    for (std::size_t i = std::string("<EventData></EventData>").size(); i < kLongestEventData + more; ++i)
      data += filling;
    return data + "</EventData>";
  };
  for (const auto& [xml, data] : std::initializer_list<std::pair<std::string, std::string>>{
           {"<Event><System/><EventData Name='a'><Data>1</Data></EventData></Event>",
            "<EventData Name='a'><Data>1</Data></EventData>"},
           {"<Event><EventDataX>1</EventDataX><EventData>2</EventData></Event>", "<EventData>2</EventData>"},
           {"<Event><EventData Name='a'/><X></EventData></Event>", "<EventData />"},
           {"<Event><EventData></EventData></Event>", "<EventData />"},
           {"<Event><EventData><Data>cut off", "<EventData />"},
           {"<EventData", "<EventData />"},
           {"", "<EventData />"},
           {filled("x", 0), filled("x", 0)},
           {filled("\xC3\xA4", 0), filled("\xC3\xA4", 0)},
           {filled("x", 1), String::UTF16ToUTF8(kEventDataTooLarge)},
       }) {
    EXPECT_EQ(String::UTF16ToUTF8(EventDataText(xml)), data) << xml.substr(0, 60);
  }
}

TEST(EventLogRenderingTest, AbsentValuesGiveNoField) {
  const platform::VirtualRuntime runtime;
  platform::EventLogRecord record;
  record.values.resize(std::size(kEventLogFields) + 1);
  record.values[0] = "System";
  record.values[3] = std::uint64_t{2};
  record.values[8] = WallTime(std::chrono::milliseconds(kMoment * 1000 + 999));
  record.values.back() = "EventLog";
  RenderedEvent event = RenderEvent(record, runtime.clock());
  EXPECT_EQ(event.provider_name, L"EventLog");
  EXPECT_EQ(event.time_created, kMoment);
  EXPECT_EQ(event.fields, (std::map<std::wstring, std::wstring>{{L"Channel", L"System"},
                                                                {L"Level", L"2"},
                                                                {L"LevelName", L"Error"},
                                                                {L"TimeCreated", L"2025-12-31T23:00:00+00:00"},
                                                                {L"EventData", L"<EventData />"}}));
  record.values[2] = record.values.back() = std::string(900'000, 's');
  event = RenderEvent(record, runtime.clock());
  EXPECT_EQ(event.provider_name, std::wstring(kLongestEventValue, L's'));
  EXPECT_EQ(event.fields.at(L"EventSourceName"), std::wstring(kLongestEventValue, L's'));
  record.values = {platform::EventLogValue("System")};
  EXPECT_EQ(RenderEvent(record, runtime.clock()).fields.size(), 2u) << "an answer shorter than the question";
}

TEST(EventDataTest, ItemsComeInTheirOrderWithTheirNames) {
  using Items = std::vector<std::pair<std::string, std::string>>;
  for (const auto& [data, items] : std::initializer_list<std::pair<std::string, Items>>{
           {"", {}},
           {"<Data>a.exe</Data><Data/> <Data Name = \"x&amp;y\" Type='n'>1&lt;2&#xe4;&#10;&#8364;&#x1F600;</Data >",
            {{"", "a.exe"}, {"", ""}, {"x&y", "1<2\u00e4\n\u20ac\U0001F600"}}},
           {"<DataX>no</DataX><Binary>00</Binary><Data Name='n'/><Data>\n b </Data>", {{"n", ""}, {"", "\n b "}}},
           {"<Data>a</Data><Data>&nbsp;</Data><Data>b</Data>", {{"", "a"}}},
           {"<Data>a</Data><Data Name=x>b</Data>", {{"", "a"}}},
           {"<Data>a</Data><Data Name='x>b", {{"", "a"}}},
       }) {
    Items found;
    for (const EventDataItem& item : EventDataItems("<Event><EventData>" + data + "</EventData></Event>"))
      found.emplace_back(item.name, item.value);
    EXPECT_EQ(found, items) << data;
  }
}

TEST(EventLogRenderingTest, AFailureIsLoggedAndWhatCameBeforeCounts) {
  const LogCapture logs;
  Log log;
  utility::InitLog(log, L"Test.log", 4);
  const platform::VirtualRuntime runtime;
  platform::SimulatedEventLog event_log;
  event_log.Set([](const platform::EventLogQuery& query) {
    EXPECT_EQ(query.value_paths.size(), std::size(kEventLogFields) + 1);
    return platform::EventLogReading{.records = {{}}, .failure = EventLogFailure::kNext, .error = 7};
  });
  const EventLogAnswer answer = ReadLoggedEvents(event_log, runtime.clock(), "System", "*", 2, log, L"Me");
  EXPECT_EQ(answer.failure, EventLogFailure::kNext);
  EXPECT_EQ(answer.events.size(), 1u);
  EXPECT_EQ(logs.Lines().back(), L"Me, EvtNext failed with 7l\n");
}

}  // namespace

}  // namespace TVK
