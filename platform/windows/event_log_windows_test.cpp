// The event log as it is read through the system's own functions, which a library beside this program stands in for.
#include <gtest/gtest.h>

#include "platform/event_log.h"
#include "platform/local.h"
#include "platform/windows/sys.h"

namespace platform::windows {
namespace {

class EventLogWindowsTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(open_handles_, nullptr) << "the system's own library was loaded"; }
  void TearDown() override { EXPECT_EQ(open_handles_(), 0) << "every handle is closed"; }

  EventLogReading Read(EventLogQuery query) { return machine_->event_log().Query(query); }

  using OpenHandles = int(WINAPI*)();
  const OpenHandles open_handles_ = reinterpret_cast<OpenHandles>(
      reinterpret_cast<void*>(GetProcAddress(LoadLibraryW(L"wevtapi.dll"), "OpenHandles")));
  const std::unique_ptr<Runtime> runtime_ = MakeRealRuntime({});
  const std::unique_ptr<Machine> machine_ = OpenLocalMachine({}, runtime_->clock());
};

TEST_F(EventLogWindowsTest, EventsComeNewestFirstWithEachKindOfValue) {
  constexpr WallTime kMoment{std::chrono::seconds(1'767'222'000)};
  const std::vector<std::pair<std::string, EventLogValue>> expected = {
      {"Event/System/Channel", "System"},
      {"Event/System/Provider/@Guid", "{A68CA8B7-004F-D7B6-A698-07E2DE0F1F5D}"},
      {"Event/System/Level", std::uint64_t{4}},
      {"Event/System/EventID", std::uint64_t{12}},
      {"Event/System/EventRecordID", std::uint64_t{7000}},
      {"Event/System/TimeCreated/@SystemTime", kMoment},
      {"Event/System/Execution/@ProcessID", std::uint64_t{4}},
      {"Event/System/Provider/@EventSourceName", std::monostate()},
  };
  EventLogQuery query{"System", "*", {}, 5};
  for (const auto& [path, value] : expected)
    query.value_paths.push_back(path);
  const EventLogReading reading = Read(query);
  EXPECT_EQ(reading.failure, EventLogFailure::kNone);
  ASSERT_EQ(reading.records.size(), 2u);
  for (std::size_t i = 0; i < expected.size(); ++i)
    EXPECT_EQ(reading.records[0].values.at(i), expected[i].second) << expected[i].first;
  EXPECT_EQ(reading.records[0].xml, "<Event><EventData><Data>\u00e4x</Data></EventData></Event>");
  EXPECT_EQ(reading.records[1].values.at(4), EventLogValue(std::uint64_t{6999}));
  query.limit = 1;
  EXPECT_EQ(Read(query).records.size(), 1u);
}

TEST_F(EventLogWindowsTest, ABufferThatIsTooSmallGrows) {
  const EventLogReading reading = Read({"System", "long", {"Event/System/Provider/@Name"}, 5});
  ASSERT_EQ(reading.records.size(), 2u);
  EXPECT_EQ(reading.records[1].values.at(0), EventLogValue(std::string(3000, 'n')));
  EXPECT_GT(reading.records[1].xml.size(), 5000u);
}

TEST_F(EventLogWindowsTest, EachFailureIsToldAndWhatCameBeforeCounts) {
  struct Row {
    const char* channel;
    const char* query;
    const char* path;
    std::size_t events;
    EventLogFailure failure;
    std::uint32_t error;
  };
  constexpr char kPath[] = "Event/System/Level";
  for (const Row& row : {
           Row{"Absent", "*", kPath, 0, EventLogFailure::kChannelNotFound, ERROR_EVT_CHANNEL_NOT_FOUND},
           Row{"System", "no query", kPath, 0, EventLogFailure::kInvalidQuery, ERROR_EVT_INVALID_QUERY},
           Row{"System", "denied", kPath, 0, EventLogFailure::kQuery, ERROR_ACCESS_DENIED},
           Row{"System", "*", "no path", 0, EventLogFailure::kCreateRenderContext, ERROR_EVT_INVALID_QUERY},
           Row{"System", "breaks off", kPath, 1, EventLogFailure::kNext, RPC_S_SERVER_UNAVAILABLE},
           Row{"System", "stale once", kPath, 2, EventLogFailure::kNone, 0},
           Row{"System", "stale", kPath, 1, EventLogFailure::kNext, ERROR_EVT_QUERY_RESULT_STALE},
           Row{"System", "endless", kPath, 5, EventLogFailure::kNone, 0},
           Row{"System", "no values", kPath, 0, EventLogFailure::kRenderValues, ERROR_EVT_INVALID_EVENT_DATA},
           Row{"System", "never enough", kPath, 0, EventLogFailure::kRenderValues, ERROR_INSUFFICIENT_BUFFER},
           Row{"System", "no xml", kPath, 1, EventLogFailure::kRenderXml, ERROR_EVT_INVALID_EVENT_DATA},
       }) {
    const EventLogReading reading = Read({row.channel, row.query, {row.path}, 5});
    EXPECT_EQ(reading.failure, row.failure) << row.query;
    EXPECT_EQ(reading.error, row.error) << row.query;
    EXPECT_EQ(reading.records.size(), row.events) << row.query;
  }
}

}  // namespace
}  // namespace platform::windows
