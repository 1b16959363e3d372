#include "monitors/tvk_event_monitor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "client/channel/session_recorder.h"
#include "testing/monitor_world.h"

namespace TVK {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only

class TvkEventMonitorTest : public testing::Test {
 protected:
  void SetSettings(const SettingTexts& settings) {
    world_.config.SetPolicy(MakePolicy(L"full", {{std::wstring(kTvkEventRow.id), L"TVKEvent"}}));
    world_.config.SetSettings(L"TVKEvent", settings);
  }
  int Take(const std::wstring& item, const ItemData& data = {}, EventSender sender = EventSender::kPrivileged) {
    const TakenEvent taken = monitor_.TakeEvent(item, data, sender);
    EXPECT_EQ(taken.result == 0, taken.reason.empty());
    EXPECT_EQ(taken.too_many, taken.reason.find("quota") != std::string::npos);
    reason_ = taken.reason;
    return taken.result;
  }

  MonitorWorld world_;
  ServiceLife life_{world_};
  TVKEventMonitor monitor_{life_.services()};
  std::string reason_;
};

TEST_F(TvkEventMonitorTest, WritesWhatItIsTold) {
  SetSettings({});
  monitor_.LogDatasetContext(true);
  EXPECT_TRUE(life_.DatasetContexts().empty()) << "without an event there is nothing to describe";
  life_.manager.version_answer = 2;
  EXPECT_EQ(Take(L"DockUsed", {{L"dock", L"D-17"}, {L"note", L""}}), 0);
  life_.manager.version_answer = 0;
  EXPECT_EQ(Take(L"DockUsed"), 0);
  EXPECT_EQ(Take(L"a.b-C_9", {{L"k", std::wstring(200, L'\u00e9')}}), 0);
  ASSERT_EQ(life_.DatasetContexts().size(), 1u);
  EXPECT_EQ(life_.Items(L"DeviceInit").size(), 1u);
  const auto used = life_.Items(L"DockUsed");
  ASSERT_EQ(used.size(), 2u);
  EXPECT_EQ(used[0].item_data(), (ItemData{{L"dock", L"D-17"}, {L"note", L""}}));
  EXPECT_EQ(used[0].dataset_context_id(), life_.DatasetContexts()[0].dataset_context_id());
  EXPECT_EQ(used[0].source(), L"tvk/event");
  // SHA-256 of the dataset's id, a zero byte and the name.
  EXPECT_EQ(used[0].item_id(), L"F01DD751-9B29-8BC0-8C41-0E10D89766C9");
  EXPECT_EQ(used[1].item_id(), used[0].item_id());
  EXPECT_NE(life_.Items(L"a.b-C_9")[0].item_id(), used[0].item_id());
}

TEST_F(TvkEventMonitorTest, RefusesWhatIsNoName) {
  SetSettings({});
  for (const std::wstring& name : {std::wstring(), std::wstring(L"1a"), std::wstring(L"a b"), std::wstring(L"a=b"),
                                   std::wstring(L"\u00e9"), std::wstring(65, L'a'), std::wstring(L"DeviceInit")}) {
    EXPECT_EQ(Take(name), SessionRecorder::kRefused);
    EXPECT_EQ(Take(L"Item", {{name + L" ", L""}}), SessionRecorder::kRefused);
  }
  EXPECT_EQ(Take(std::wstring(64, L'a')), 0);
  EXPECT_EQ(life_.Items(std::wstring(64, L'a')).size(), 1u);
  EXPECT_TRUE(life_.Items(L"Item").empty());
}

TEST_F(TvkEventMonitorTest, ThePolicySaysHowManyAndFromWhom) {
  SetSettings({{L"EventsPerHour", L"2"}, {L"Senders", L"users"}});
  EXPECT_EQ(Take(L"Item", {}, EventSender::kUser), 0);
  life_.consent.given = false;
  EXPECT_EQ(Take(L"Item"), DatasetMonitor::kWithheld);
  life_.consent.given = true;
  world_.runtime.AdvanceBy(20min);
  EXPECT_EQ(Take(L"Item"), 0);
  EXPECT_EQ(Take(L"Item"), SessionRecorder::kRefused);
  EXPECT_EQ(reason_, "the policy's quota of 2 events an hour is used up; there is room in 40 min");
  world_.runtime.Suspend(40min);
  EXPECT_EQ(Take(L"Item"), 0) << "time asleep counts";
  EXPECT_EQ(Take(L"Item"), SessionRecorder::kRefused) << "the second of them is not an hour old";
  SetSettings({{L"EventsPerHour", L"4"}, {L"Senders", L"everybody"}});
  EXPECT_EQ(Take(L"Item", {}, EventSender::kUser), SessionRecorder::kRefused);
  EXPECT_EQ(Take(L"Item"), 0);
  EXPECT_EQ(life_.Items(L"Item").size(), 4u);
  SetSettings({{L"Senders", L"users"}, {L"EventsPerHour", L"3600"}});
  EXPECT_EQ(Take(L"Item", {}, EventSender::kUser), 0);
  // The same dataset, under an id whose settings nobody finds.
  world_.config.SetPolicy(MakePolicy(L"full", {{L"{10b843ff-8ca9-4897-9acf-198dee3df75f}", L"TVKEvent"}}));
  EXPECT_EQ(Take(L"Item", {}, EventSender::kUser), SessionRecorder::kRefused) << "a right that was withdrawn";
}

TEST_F(TvkEventMonitorTest, UsersLeaveHalfOfTheQuotaToAdministrators) {
  SetSettings({{L"EventsPerHour", L"1"}, {L"Senders", L"users"}});
  EXPECT_EQ(Take(L"Item", {}, EventSender::kUser), SessionRecorder::kRefused);
  EXPECT_EQ(reason_, "the policy's quota of 1 event an hour leaves none to users");
  SetSettings({{L"EventsPerHour", L"5"}, {L"Senders", L"users"}});
  EXPECT_EQ(Take(L"Item"), 0);
  for (int i = 0; i < 2; ++i) {
    world_.runtime.AdvanceBy(1min);
    EXPECT_EQ(Take(L"Item", {}, EventSender::kUser), 0);
  }
  EXPECT_EQ(Take(L"Item", {}, EventSender::kUser), SessionRecorder::kRefused);
  EXPECT_EQ(reason_, "the policy's quota of 2 events an hour for users is used up; there is room in 59 min");
  EXPECT_EQ(Take(L"Item"), 0);
  EXPECT_EQ(Take(L"Item"), 0);
  EXPECT_EQ(Take(L"Item"), SessionRecorder::kRefused);
  EXPECT_EQ(reason_, "the policy's quota of 5 events an hour is used up; there is room in 58 min");
  world_.runtime.AdvanceBy(59min);
  EXPECT_EQ(Take(L"Item", {}, EventSender::kUser), 0);
  EXPECT_EQ(Take(L"Item", {}, EventSender::kUser), SessionRecorder::kRefused);
}

TEST_F(TvkEventMonitorTest, EventsThatComeTogetherAreAllWritten) {
  SetSettings({{L"EventsPerHour", L"8"}});
  life_.manager.version_answer = 2;
  std::vector<std::thread> senders;
  std::atomic<int> taken = 0;
  for (int i = 0; i < 8; ++i) {
    senders.emplace_back(
        [&] { taken += monitor_.TakeEvent(L"Item", {}, EventSender::kPrivileged).result == 0 ? 1 : 0; });
  }
  for (std::thread& sender : senders)
    sender.join();
  EXPECT_EQ(taken, 8);
  EXPECT_EQ(life_.Items(L"Item").size(), 8u);
  EXPECT_EQ(life_.DatasetContexts().size(), 1u);
  EXPECT_EQ(life_.Items(L"DeviceInit").size(), 1u);
  EXPECT_EQ(Take(L"Item"), SessionRecorder::kRefused);
}

TEST_F(TvkEventMonitorTest, WhatIsNotWrittenTakesNoRoom) {
  SetSettings({{L"EventsPerHour", L"1"}});
  const int failed = Take(L"Item", {{L"k", std::wstring(2 << 20, L'x')}});
  EXPECT_NE(failed, 0);
  EXPECT_NE(failed, SessionRecorder::kRefused);
  EXPECT_EQ(Take(L"Item"), 0);
}

}  // namespace
}  // namespace TVK
