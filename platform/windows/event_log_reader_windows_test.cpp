// Event logs as they are followed through the system's own functions, which a library beside this program stands in
// for.
#include <gtest/gtest.h>

#include <set>

#include "platform/event_log_reader.h"
#include "platform/local.h"
#include "platform/windows/sys.h"

#include "platform/windows/event_log_stand_in.h"

namespace platform::windows {
namespace {

using event_log_stand_in::Channel;
using event_log_stand_in::Script;

constexpr char kQuery[] =
    "<QueryList><Query><Select Path='Application'>*</Select><Select Path='Security'>*</Select>"
    "<Select Path='System'>*</Select></Query></QueryList>";

using Notices = std::vector<EventLogNotice>;

class EventLogReaderTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(script_, nullptr) << "the system's own library was loaded";
    *script_ = {};
    for (std::size_t i = 0; i < std::size(kNames); ++i)
      script_->channels[i] = {.name = kNames[i]};
  }
  void TearDown() override {
    EXPECT_EQ(Get<int(WINAPI*)()>("OpenHandles")(), 0) << "every handle is closed";
    EXPECT_EQ(script_->reads_with_signal, 0) << "the signal is reset before the events are taken";
    *script_ = {};
  }

  template <typename Function>
  static Function Get(const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(LoadLibraryW(L"wevtapi.dll"), name)));
  }

  Channel& application() { return script_->channels[0]; }
  Channel& security() { return script_->channels[1]; }
  Channel& system() { return script_->channels[2]; }

  EventLogReaderOpening Open(const std::string& bookmark = {}) {
    return machine_->event_log().OpenReader(
        *runtime_, {.query = kQuery,
                    .value_paths = {"Event/System/EventRecordID", "Event/System/Channel", "Event/System/Opcode"},
                    .bookmark = bookmark});
  }
  /// The numbers of the events of all batches until there are no more.
  std::vector<std::uint64_t> Drain(EventLogReader& reader, std::size_t limit = 1000) {
    std::vector<std::uint64_t> ids;
    events_.clear();
    for (EventLogBatch batch{.more = true}; batch.more;) {
      batch = reader.Take(limit);
      EXPECT_LE(batch.events.size(), limit);
      for (const EventLogNotice& notice : batch.notices)
        notices_.push_back(notice);
      for (const EventLogEvent& event : batch.events) {
        ids.push_back(std::get<std::uint64_t>(event.record.values.at(0)));
        events_.push_back(event);
      }
      bookmark_ = batch.bookmark;
    }
    return ids;
  }
  Notices TakeNotices() { return std::exchange(notices_, {}); }
  bool HasNews(EventLogReader& reader) { return runtime_->Wait(reader.news(), milliseconds(0)) == 0; }

  static std::vector<std::uint64_t> Numbers(std::uint64_t first, std::uint64_t last) {
    std::vector<std::uint64_t> numbers;
    for (; first <= last; ++first)
      numbers.push_back(first);
    return numbers;
  }

  static constexpr const wchar_t* kNames[] = {L"Application", L"Security", L"System"};
  Script* const script_ = Get<event_log_stand_in::GetScript>("Script")();
  const event_log_stand_in::TellAll tell_all_ = Get<event_log_stand_in::TellAll>("TellAll");
  const std::unique_ptr<Runtime> runtime_ = MakeRealRuntime({});
  const std::unique_ptr<Machine> machine_ = OpenLocalMachine({}, runtime_->clock());
  std::vector<EventLogEvent> events_;
  Notices notices_;
  std::string bookmark_;
};

TEST_F(EventLogReaderTest, EveryBookmarkGoesOnBehindItsEvent) {
  application().count = 3;
  system().oldest = 50;
  system().count = 2;
  const auto opening = Open();
  EXPECT_TRUE(HasNews(*opening.reader));
  EXPECT_EQ(Drain(*opening.reader, 2).size(), 5u);
  EXPECT_EQ(events_[0].record.values.at(2), EventLogValue()) << "absent";
  EXPECT_NE(events_[0].record.xml.find("<EventData>"), std::string::npos);
  EXPECT_EQ(events_.back().bookmark, bookmark_);
  EXPECT_FALSE(HasNews(*opening.reader));
  using Key = std::pair<EventLogValue, EventLogValue>;
  const auto keys = [](const std::vector<EventLogEvent>& events) {
    std::multiset<Key> all;
    for (const EventLogEvent& event : events)
      all.insert({event.record.values.at(0), event.record.values.at(1)});
    return all;
  };
  const std::vector<EventLogEvent> all = events_;
  for (std::size_t i = 0; i < all.size(); ++i) {
    Drain(*Open(all[i].bookmark).reader);
    for (const EventLogEvent& event : events_) {
      const std::string channel = std::get<std::string>(event.record.values.at(1));
      EXPECT_EQ(event.of_new_channel, all[i].bookmark.find(channel) == std::string::npos) << channel;
    }
    std::vector<EventLogEvent> together(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(i) + 1);
    together.insert(together.end(), events_.begin(), events_.end());
    EXPECT_EQ(keys(together), keys(all)) << "behind event " << i;
  }
  security().count = 1;
  tell_all_();
  EXPECT_TRUE(HasNews(*opening.reader));
  EXPECT_EQ(Drain(*opening.reader), Numbers(1, 1));
  EXPECT_EQ(TakeNotices(), Notices());
}

TEST_F(EventLogReaderTest, AFloodKeepsNoOtherChannelWaiting) {
  application().count = 6000;
  system().count = 1;
  const auto reader = Open().reader;
  bool seen = false;
  for (int i = 0; i < 3; ++i) {
    for (const EventLogEvent& event : reader->Take(100).events)
      seen = seen || event.record.values.at(1) == EventLogValue("System");
  }
  EXPECT_TRUE(seen);
}

TEST_F(EventLogReaderTest, AChannelThatCannotBeReadFailsAlone) {
  application().count = 2;
  security().open_error = ERROR_ACCESS_DENIED;
  system().name = L"Other";
  const auto opening = Open();
  EXPECT_EQ(Drain(*opening.reader), Numbers(1, 2));
  EXPECT_EQ(TakeNotices(), Notices({{EventLogTrouble::kAccessRefused, "Security", ERROR_ACCESS_DENIED},
                                    {EventLogTrouble::kChannelNotFound, "System", ERROR_EVT_CHANNEL_NOT_FOUND}}));
  application().next_error = RPC_S_SERVER_UNAVAILABLE;
  application().errors_left = 1;
  EXPECT_EQ(Drain(*opening.reader).size(), 0u);
  EXPECT_EQ(TakeNotices(), Notices({{EventLogTrouble::kFailed, "Application", RPC_S_SERVER_UNAVAILABLE}}));
  application().count = 3;
  EXPECT_EQ(Drain(*opening.reader).size(), 0u);
  EXPECT_EQ(Drain(*Open(bookmark_).reader), Numbers(3, 3));
}

TEST_F(EventLogReaderTest, LossesAreToldAndReadingGoesOnWithTheOldest) {
  struct Row {
    const char* what;
    std::uint64_t oldest;
    std::uint64_t count;
    std::vector<std::uint64_t> ids;
    Notices notices;
  };
  application().count = 10;
  Drain(*Open().reader);
  const std::string bookmark = bookmark_;
  for (const Row& row : {
           Row{"overwritten", 15, 3, Numbers(15, 17), {{EventLogTrouble::kGap, "Application", 0, 4}}},
           Row{"overwritten, and nothing was lost", 11, 3, Numbers(11, 13), {}},
           Row{"cleared, numbers anew", 1, 3, Numbers(1, 3), {{EventLogTrouble::kCleared, "Application"}}},
           Row{"cleared", 11, 0, {}, {{EventLogTrouble::kCleared, "Application"}}},
       }) {
    application().oldest = row.oldest;
    application().count = row.count;
    EXPECT_EQ(Drain(*Open(bookmark).reader), row.ids) << row.what;
    EXPECT_EQ(TakeNotices(), row.notices) << row.what;
    EXPECT_EQ(bookmark_.empty(), row.count == 0) << "what was cleared is not told again";
  }
  application() = {.name = L"Application", .oldest = 1, .count = 2};
  for (const char* const none : {"rubbish", "Application\trubbish"}) {
    EXPECT_EQ(Drain(*Open(none).reader), Numbers(1, 2));
    EXPECT_EQ(TakeNotices().at(0).trouble, EventLogTrouble::kGap);
  }
}

TEST_F(EventLogReaderTest, EventsThatNobodyWantsMayGoWhenTheyWerePassed) {
  struct Row {
    const char* what;
    bool passes;
    Channel then;  ///< The channel as the pass finds it, behind the events 1 and 2, which were taken.
    std::vector<std::uint64_t> taken;
    Notices at_90;  ///< What the next reader tells of a log whose oldest event is 90.
  };
  const auto gap = [](std::uint64_t lost) { return Notices{{EventLogTrouble::kGap, "Application", 0, lost}}; };
  for (const Row& row : {
           Row{"not asked for", false, {.oldest = 50, .count = 50, .last_wanted = 2}, {}, gap(87)},
           Row{"unwanted", true, {.oldest = 50, .count = 50, .last_wanted = 2}, {}, {}},
           Row{"a wanted one among them", true, {.oldest = 50, .count = 50, .last_wanted = 60}, Numbers(50, 60), {}},
           Row{"wanted and beyond the newest asked for",
               true,
               {.oldest = 50, .count = 10, .logged_behind_newest = 3},
               Numbers(50, 62),
               gap(27)},
           Row{"logged behind the last one taken",
               true,
               {.oldest = 50, .count = 10, .last_wanted = 2, .logged_behind_last = 3},
               {},
               gap(30)},
           Row{"emptied, numbers anew", true, {.oldest = 1, .count = 1, .last_wanted = 0}, {}, gap(87)},
           Row{"empty", true, {.oldest = 50, .count = 0}, {}, gap(87)},
           Row{"closed to questions",
               true,
               {.oldest = 50, .count = 50, .last_wanted = 2, .open_error = ERROR_ACCESS_DENIED},
               {},
               gap(87)},
       }) {
    SCOPED_TRACE(row.what);
    application() = {.name = L"Application", .oldest = 1, .count = 2};
    const auto reader = Open().reader;
    Drain(*reader);
    application() = row.then;
    application().name = L"Application";
    if (row.passes) reader->PassUnwanted();
    EXPECT_EQ(Drain(*reader), row.taken);
    EXPECT_EQ(TakeNotices(), Notices());
    application() = {.name = L"Application", .oldest = 90, .count = 11};
    EXPECT_EQ(Drain(*Open(bookmark_).reader), row.at_90.empty() ? Numbers(100, 100) : Numbers(90, 100));
    EXPECT_EQ(TakeNotices(), row.at_90);
  }
}

TEST_F(EventLogReaderTest, WhatTheServiceCouldNotGiveIsReadAgain) {
  application().count = 200;
  const auto take_all = [&](DWORD error, int times) {
    const auto reader = Open().reader;
    const std::size_t first = reader->Take(70).events.size();
    bookmark_.clear();
    application().next_error = error;
    application().errors_left = times;
    const auto ids = Drain(*reader);
    return first == 70 && ids == Numbers(71, 200);
  };
  for (const DWORD error : {DWORD{RPC_S_INVALID_BOUND}, DWORD{ERROR_INVALID_OPERATION}, DWORD{ERROR_TIMEOUT}}) {
    EXPECT_TRUE(take_all(error, 3)) << error;
    EXPECT_EQ(TakeNotices(), Notices());
    EXPECT_FALSE(take_all(error, 4));
    EXPECT_EQ(TakeNotices(), Notices({{EventLogTrouble::kFailed, "Application", error}}));
  }
  EXPECT_LE(script_->largest_batch, 64u);
  EXPECT_TRUE(take_all(ERROR_EVT_QUERY_RESULT_STALE, 1));
  EXPECT_EQ(TakeNotices(), Notices({{EventLogTrouble::kGap, "Application"}}));
}

TEST_F(EventLogReaderTest, AMachineWithoutTheServiceHasNoLog) {
  script_->no_service = true;
  EXPECT_EQ(Open().failure, EventLogFailure::kNotSupported);
  EXPECT_EQ(machine_->event_log().OpenReader(*runtime_, {.query = "*"}).failure, EventLogFailure::kInvalidQuery);
}

TEST_F(EventLogReaderTest, AChannelTellsHowItStands) {
  system() = {.name = L"System", .oldest = 6990, .count = 11};
  const EventLogStatus status = machine_->event_log().ReadStatus("System");
  EXPECT_EQ(status.events, 11u);
  EXPECT_EQ(status.bytes, 69'632u);
  EXPECT_EQ(status.most_bytes, 20'971'520u);
  EXPECT_EQ(status.oldest, WallTime(std::chrono::seconds(1'767'222'000 - 10)));
  EXPECT_EQ(machine_->event_log().ReadStatus("Security").oldest, std::nullopt);
  EXPECT_EQ(machine_->event_log().ReadStatus("Absent").failure, EventLogFailure::kChannelNotFound);
  security().open_error = ERROR_ACCESS_DENIED;
  EXPECT_EQ(machine_->event_log().ReadStatus("Security").failure, EventLogFailure::kQuery);
}

}  // namespace
}  // namespace platform::windows
