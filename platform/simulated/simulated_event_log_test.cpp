// What the monitors' tests rely on: the scripted log's readers keep the contract of event_log_reader.h.
#include "platform/simulated/simulated_event_log.h"

#include <gtest/gtest.h>

#include "platform/event_log_reader.h"
#include "platform/simulated/virtual_runtime.h"

namespace platform {
namespace {

constexpr char kQuery[] =
    "<QueryList><Query><Select Path='System'>*[System[Level=2]]</Select><Select Path='Application'>*</Select>"
    "<Select Path='Absent'>*</Select></Query></QueryList>";

class SimulatedEventLogTest : public testing::Test {
 protected:
  void Append(const std::string& channel, std::uint32_t id, std::uint32_t level = 2) {
    log_.Append({.channel = channel, .id = id, .level = level, .time = runtime_.clock().Now()});
  }
  std::unique_ptr<EventLogReader> Open(const std::string& bookmark = {}) {
    return log_.OpenReader(runtime_, {.query = kQuery, .value_paths = {"Event/System/EventID"}, .bookmark = bookmark})
        .reader;
  }
  /// The next events' ids; their notices and bookmark stay in `batch_`.
  std::vector<std::uint64_t> Take(EventLogReader& reader, std::size_t limit = 9) {
    batch_ = reader.Take(limit);
    std::vector<std::uint64_t> ids;
    for (const EventLogEvent& event : batch_.events)
      ids.push_back(std::get<std::uint64_t>(event.record.values.at(0)));
    return ids;
  }
  bool HasNews(EventLogReader& reader) { return runtime_.Wait(reader.news(), milliseconds(0)) == 0; }

  VirtualRuntime runtime_;
  SimulatedEventLog log_;
  EventLogBatch batch_;
};

using Ids = std::vector<std::uint64_t>;
using Notices = std::vector<EventLogNotice>;

TEST_F(SimulatedEventLogTest, EventsComeOnceWithTheirNews) {
  Append("System", 1);
  Append("Application", 2, 4);
  Append("System", 3, 4);
  Append("System", 4);
  const auto reader = Open();
  EXPECT_TRUE(HasNews(*reader));
  EXPECT_EQ(Take(*reader, 2), (Ids{1, 4}));
  EXPECT_EQ(
      batch_.notices,
      Notices({{.trouble = EventLogTrouble::kChannelNotFound, .channel = "Absent", .error = kErrorNotSupported}}));
  EXPECT_TRUE(batch_.more && HasNews(*reader));
  const std::string after_first = batch_.events[0].bookmark;
  EXPECT_EQ(Take(*reader, 2), Ids{2});
  EXPECT_TRUE(batch_.notices.empty() && !batch_.more && !HasNews(*reader));
  Append("Application", 5);
  EXPECT_TRUE(HasNews(*reader));
  EXPECT_EQ(Take(*reader), Ids{5});
  EXPECT_EQ(Take(*Open(after_first)), (Ids{4, 2, 5}));
  EXPECT_EQ(Take(*Open(batch_.bookmark)), Ids());
}

TEST_F(SimulatedEventLogTest, LossesAreTold) {
  for (std::uint32_t id = 1; id <= 5; ++id)
    Append("System", id);
  const auto reader = Open();
  EXPECT_EQ(Take(*reader, 2), (Ids{1, 2}));
  const std::string bookmark = batch_.bookmark;
  log_.DropOldest("System", 2);
  EXPECT_EQ(Take(*Open(bookmark), 1), Ids{3}) << "what is gone was read";
  EXPECT_EQ(batch_.notices.size(), 1u);
  log_.DropOldest("System", 2);
  EXPECT_EQ(Take(*reader), Ids{5});
  EXPECT_EQ(batch_.notices, Notices({{.trouble = EventLogTrouble::kGap, .channel = "System", .lost = 2}}));
  log_.Clear("System");
  Append("System", 6);
  EXPECT_EQ(Take(*reader), Ids{6});
  EXPECT_EQ(batch_.notices, Notices({{.trouble = EventLogTrouble::kCleared, .channel = "System"}}));
  EXPECT_EQ(Take(*Open("rubbish")), Ids{6});
  EXPECT_EQ(batch_.notices.front(), EventLogNotice{.trouble = EventLogTrouble::kGap});
}

TEST_F(SimulatedEventLogTest, StatusAndTroubleAreScripted) {
  Append("System", 1);
  EXPECT_EQ(log_.ReadStatus("System").events, 1u);
  EXPECT_EQ(log_.ReadStatus("System").oldest, runtime_.clock().Now());
  log_.Fail("System", EventLogTrouble::kAccessRefused);
  EXPECT_EQ(log_.ReadStatus("System").failure, EventLogFailure::kQuery);
  EXPECT_EQ(Take(*Open()), Ids());
  EXPECT_EQ(batch_.notices.front().trouble, EventLogTrouble::kAccessRefused);
  EXPECT_EQ(log_.OpenReader(runtime_, {.query = "*"}).failure, EventLogFailure::kInvalidQuery);
}

}  // namespace
}  // namespace platform
