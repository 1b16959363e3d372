#include "monitors/logs/windows_logs_event_monitor.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "client/store/failing_disk.h"
#include "client/text/string.h"
#include "platform/simulated/simulated_event_log.h"
#include "testing/monitor_world.h"

namespace TVK {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only

constexpr wchar_t kLoggedEvent[] = L"LoggedEvent";
constexpr wchar_t kSkipped[] = L"EventsSkipped";
constexpr wchar_t kInterrupted[] = L"LogInterrupted";

class WindowsLogsTest : public testing::Test {
 protected:
  WindowsLogsTest() {
    world_.config.SetPolicy(
        MakePolicy(L"full", {{WindowsLogsEventMonitor::dataset_id, WindowsLogsEventMonitor::dataset_name}}));
  }
  void Log(std::uint32_t id, const char* channel = "Application", std::uint32_t level = 2,
           std::chrono::milliseconds clock_is_off = {}) {
    world_.machine.event_log().Append({.channel = channel,
                                       .provider = "Contoso",
                                       .id = id,
                                       .level = level,
                                       .time = world_.runtime.clock().Now() + clock_is_off,
                                       .process = 4711,
                                       .data = {{"Text", "s3cret"}}});
  }
  void Start() {
    monitor_.reset();
    life_.emplace(world_);
    monitor_.emplace(world_.runtime, std::make_unique<WindowsLogsEventMonitor>(life_->services()));
    world_.runtime.Settle();
  }
  /// The store as a kill at this moment would leave it.
  void Kill() {
    const TempFolder copy;
    CopyFiles(world_.folder.path(), copy.path());
    monitor_.reset();
    life_.reset();
    for (const auto& file : std::filesystem::directory_iterator(world_.folder.path()))
      std::filesystem::remove(file);
    CopyFiles(copy.path(), world_.folder.path());
  }
  static void CopyFiles(const std::filesystem::path& from, const std::filesystem::path& to) {
    for (const auto& file : std::filesystem::directory_iterator(from)) {
      const std::filesystem::path name = file.path().filename();
      // What the processes that have a database open share of it goes with them.
      if (!name.string().ends_with("-shm")) std::filesystem::copy_file(file.path(), to / name);
    }
  }
  void Settings(std::map<std::wstring, std::wstring> settings) {
    world_.config.SetSettings(WindowsLogsEventMonitor::dataset_name, std::move(settings));
    if (monitor_) (*monitor_)->ReadAndUpdateDatasetSettings();
    world_.runtime.Settle();
  }
  /// The ids of the events that this life recorded, "1 2 3".
  std::wstring Recorded() const {
    std::wstring ids;
    for (const ItemEvent& item : life_->Items(kLoggedEvent)) {
      if (!ids.empty()) ids += L' ';
      ids += item.item_data().at(L"EventID");
    }
    return ids;
  }
  ItemData Only(const wchar_t* item) const {
    const auto items = life_->Items(item);
    EXPECT_EQ(items.size(), 1u) << String::UTF16ToUTF8(item);
    return items.empty() ? ItemData() : items.front().item_data();
  }

  MonitorWorld world_;
  std::optional<ServiceLife> life_;
  std::optional<RunningMonitor> monitor_;
};

TEST_F(WindowsLogsTest, AnEventIsRecordedAsItComesAndItsTextAtTheScopeFullAlone) {
  Start();
  EXPECT_EQ(life_->DatasetContexts().at(0).item_data(), (ItemData{{L"Channels", L"Application, System"},
                                                                  {L"Levels", L"Critical, Error"},
                                                                  {L"TimeRange", L"86400000"},
                                                                  {L"EventsPerMinute", L"60"}}));
  Log(7);
  Log(8, "Security");
  Log(9, "System", 3);
  world_.runtime.Settle();
  EXPECT_EQ(Recorded(), L"7") << "of the other channel and level nothing";
  ItemData full = Only(kLoggedEvent);
  EXPECT_NE(full[L"EventData"].find(L"s3cret"), std::wstring::npos);
  EXPECT_EQ(full[L"ProcessID"], L"4711");
  for (const wchar_t* const scope : {L"basic", L"enhance"}) {
    life_->consent.scope = scope;
    Log(10);
    world_.runtime.Settle();
    const ItemData plain = life_->Items(kLoggedEvent).back().item_data();
    EXPECT_EQ(plain, (ItemData{{L"ProviderName", L"Contoso"},
                               {L"EventSourceName", L"Contoso"},
                               {L"Channel", L"Application"},
                               {L"Level", L"2"},
                               {L"LevelName", L"Error"},
                               {L"EventID", L"10"},
                               {L"EventRecordID", plain.at(L"EventRecordID")},
                               {L"TimeCreated", plain.at(L"TimeCreated")}}));
  }
}

TEST_F(WindowsLogsTest, WithoutAnEventNothingWakes) {
  Log(1);
  Start();
  Log(2);
  world_.runtime.Settle();
  EXPECT_EQ(Recorded(), L"1 2");
  const std::uint64_t wake_ups = world_.runtime.WakeUps();
  world_.runtime.AdvanceBy(48h);
  EXPECT_EQ(world_.runtime.WakeUps(), wake_ups);
}

TEST_F(WindowsLogsTest, EachEventOnceWhateverEndsTheService) {
  Log(1);
  Start();
  Log(2);
  world_.runtime.Settle();
  EXPECT_EQ(Recorded(), L"1 2");
  Kill();
  Log(3);
  Start();
  EXPECT_EQ(Recorded(), L"3");
  Log(4, "System", 4);  // not wanted: the place behind it is kept by the stop
  world_.runtime.Settle();
  monitor_.reset();
  Log(5);
  world_.runtime.Suspend(23h);
  Log(6);
  world_.runtime.Suspend(2h);
  Start();
  EXPECT_EQ(Recorded(), L"6") << "what is older than the time range is not recorded";
}

TEST_F(WindowsLogsTest, WhatIsBeyondTheMinutesNumberIsCounted) {
  FailingDisk disk;
  Settings({{L"EventsPerMinute", L"2"}, {L"LogLevels", L"00000111"}});
  for (std::uint32_t id = 1; id <= 10'000; ++id)
    Log(id, "Application", id % 2 == 0 ? 2 : 3);
  Start();
  EXPECT_EQ(Recorded(), L"1 2");
  Kill();
  Start();
  EXPECT_EQ(Recorded(), L"3 4") << "what nobody counted yet is read again";
  world_.runtime.AdvanceBy(59s);
  EXPECT_TRUE(life_->Items(kSkipped).empty());
  world_.runtime.AdvanceBy(2s);
  ItemData skipped = Only(kSkipped);
  EXPECT_EQ(skipped[L"Count"], L"9996");
  EXPECT_EQ(skipped[L"Error"], L"4998");
  EXPECT_EQ(skipped[L"Warning"], L"4998");
  EXPECT_EQ(skipped[L"FirstTime"], skipped[L"LastTime"]);
  disk.FailAt(1, SQLITE_FULL, true);
  Log(21);
  Log(22);
  world_.runtime.Settle();
  EXPECT_EQ(Recorded(), L"3 4");
  disk.FailAt(0, 0, false);
  world_.runtime.AdvanceBy(2min);
  EXPECT_EQ(Recorded(), L"3 4 21 22");
  for (std::uint32_t id = 23; id < 28; ++id) {
    Log(id);
    world_.runtime.AdvanceBy(1s);
  }
  disk.FailAt(1, SQLITE_FULL, true);
  world_.runtime.AdvanceBy(1min);
  disk.FailAt(0, 0, false);
  world_.runtime.AdvanceBy(2min);
  skipped = life_->Items(kSkipped).back().item_data();
  EXPECT_EQ(skipped[L"Count"], L"3");
  EXPECT_LT(skipped[L"FirstTime"], skipped[L"LastTime"]);
  for (std::uint32_t id = 28; id < 31; ++id)
    Log(id);
  world_.runtime.Settle();
  Start();
  EXPECT_EQ(Recorded(), L"") << "counted by the stop";
  EXPECT_TRUE(life_->Items(kSkipped).empty());
  monitor_.reset();
  life_.reset();
}

TEST_F(WindowsLogsTest, AMinuteThatCountsRecordsNoMoreWhenItsNumberIsRaised) {
  Settings({{L"EventsPerMinute", L"2"}});
  Start();
  const auto log = [&](std::uint32_t first, std::uint32_t last) {
    for (std::uint32_t id = first; id <= last; ++id)
      Log(id);
    world_.runtime.Settle();
  };
  log(1, 5);
  Settings({{L"EventsPerMinute", L"100"}});
  (*monitor_)->ReadAndUpdateDatasetSettings();
  log(6, 7);
  world_.runtime.AdvanceBy(61s);
  EXPECT_EQ(Only(kSkipped)[L"Count"], L"5");
  EXPECT_EQ(Recorded(), L"1 2");
  Kill();
  Start();
  log(8, 9);
  EXPECT_EQ(Recorded(), L"8 9") << "each once";
}

TEST_F(WindowsLogsTest, ALogThatWasEmptiedOrOverwrittenIsTold) {
  Start();
  Log(1);
  Log(2);
  world_.runtime.Settle();
  monitor_.reset();
  for (std::uint32_t id = 3; id < 8; ++id)
    Log(id);
  world_.machine.event_log().DropOldest("Application", 4);
  Start();
  EXPECT_EQ(Recorded(), L"5 6 7");
  EXPECT_EQ(Only(kInterrupted), (ItemData{{L"Channel", L"Application"}, {L"Reason", L"gap"}, {L"Lost", L"2"}}));
  world_.machine.event_log().Clear("Application");
  Log(9);
  world_.runtime.Settle();
  EXPECT_EQ(Recorded(), L"5 6 7 9");
  EXPECT_EQ(life_->Items(kInterrupted).back().item_data(),
            (ItemData{{L"Channel", L"Application"}, {L"Reason", L"cleared"}}));
}

TEST_F(WindowsLogsTest, InterruptionsOfSeveralLogsAreToldOnceEachWhateverKillsTheService) {
  Log(1);
  Log(2, "System");
  Start();
  Kill();
  for (const char* const channel : {"Application", "System"}) {
    Log(3, channel);
    world_.machine.event_log().DropOldest(channel, 2);
  }
  Start();
  EXPECT_EQ(life_->Items(kInterrupted).size(), 2u);
  Kill();
  Start();
  EXPECT_EQ(life_->Items(kInterrupted).size(), 0u);
  Log(4);
  world_.runtime.Settle();
  Log(5);
  world_.machine.event_log().DropOldest("Application", 2);
  monitor_.reset();
  Start();
  EXPECT_EQ(Recorded(), L"");
  Log(6);
  Log(7);
  monitor_.reset();
  world_.machine.event_log().DropOldest("Application", 3);
  Start();
  EXPECT_EQ(life_->Items(kInterrupted).size(), 1u) << "another one, behind another place";
}

TEST_F(WindowsLogsTest, WhatNobodyWantedMayGoUnnoticedAndWakesNobody) {
  world_.machine.event_log().MoveWithWanted();
  const auto flood = [&](const char* channel, std::uint32_t level = 5) {
    for (int i = 0; i < 5; ++i)
      Log(9, channel, level);
    world_.runtime.Settle();
  };
  const auto drop = [&](const char* channel, std::size_t events) {
    world_.machine.event_log().DropOldest(channel, events);
  };
  const auto lost = [&] {
    std::wstring all;
    for (const ItemEvent& item : life_->Items(kInterrupted))
      all += item.item_data().at(L"Channel") + L":" + item.item_data().at(L"Lost") + L" ";
    return all;
  };
  Log(1);
  Log(2, "System");
  Start();
  const std::uint64_t wake_ups = world_.runtime.WakeUps();
  flood("Application");
  world_.runtime.AdvanceBy(48h);
  EXPECT_EQ(world_.runtime.WakeUps(), wake_ups);
  monitor_.reset();
  drop("Application", 5);
  Start();
  EXPECT_EQ(lost(), L"") << "the stop went behind them";
  flood("Application", 4);
  Settings({{L"LogLevels", L"00001010"}});
  EXPECT_EQ(Recorded(), L"") << "new settings hold from the next event on";
  world_.runtime.AdvanceBy(40min);
  Log(3);
  world_.runtime.AdvanceBy(40min);
  flood("System");
  Log(4);
  world_.runtime.Settle();
  Log(6);
  world_.runtime.Settle();
  EXPECT_EQ(Recorded(), L"3 4 6");
  Kill();
  drop("System", 5);
  Start();
  EXPECT_EQ(lost(), L"") << "another channel's event went behind them";
  Log(5);
  world_.runtime.Settle();
  drop("Application", 100);
  flood("Application");
  for (const auto& [more, told] : {std::pair(2u, L"Application:2 "), {0u, L""}, {3u, L"Application:3 "}, {0u, L""}}) {
    Kill();
    drop("Application", more);
    Start();
    EXPECT_EQ(lost(), told) << "of those that were told before none again";
  }
}

TEST_F(WindowsLogsTest, AnInterruptionThatTheStoreDidNotTakeIsToldAgain) {
  Start();
  Log(1);
  world_.runtime.Settle();
  monitor_.reset();
  Log(2);
  Log(3);
  world_.machine.event_log().DropOldest("Application", 2);
  {
    FailingDisk disk;
    life_.emplace(world_);
    disk.FailAt(1, SQLITE_FULL, true);
    monitor_.emplace(world_.runtime, std::make_unique<WindowsLogsEventMonitor>(life_->services()));
    world_.runtime.Settle();
    EXPECT_TRUE(life_->Items(kInterrupted).empty());
    disk.FailAt(0, 0, false);
    world_.runtime.AdvanceBy(2min);
    EXPECT_EQ(Only(kInterrupted).at(L"Reason"), L"gap");
    EXPECT_EQ(Recorded(), L"3");
    monitor_.reset();
    life_.reset();
  }
}

TEST_F(WindowsLogsTest, ALogThatCannotBeReadIsSaidAndTriedAgain) {
  Settings({{L"Channels", L"1111"}});
  Log(1);
  world_.machine.event_log().Fail("System", platform::EventLogTrouble::kChannelNotFound);
  world_.machine.event_log().Fail("Application", platform::EventLogTrouble::kFailed);
  Start();
  EXPECT_EQ(Recorded(), L"");
  Log(7, "Setup");
  world_.runtime.AdvanceBy(1s);
  EXPECT_EQ(Recorded(), L"7") << "the others are read meanwhile";
  world_.machine.event_log().Fail("Application", {});
  world_.runtime.AdvanceBy(60s);
  EXPECT_EQ(Recorded(), L"7 1");
  EXPECT_EQ(world_.logs.Count(L"this system has not the channel System"), 1u);
  EXPECT_EQ(world_.logs.Count(L"reading the channel Application failed"), 1u);
}

TEST_F(WindowsLogsTest, WhereReadingBeginsIsAskedAgainWhenTheStoreCannotBeRead) {
  Log(1);
  Start();
  monitor_.reset();
  Log(2);
  {
    FailingDisk disk;
    life_.emplace(world_);
    disk.FailAt(1, SQLITE_IOERR_READ, true);
    monitor_.emplace(world_.runtime, std::make_unique<WindowsLogsEventMonitor>(life_->services()));
    world_.runtime.AdvanceBy(61s);
    EXPECT_EQ(Recorded(), L"");
    EXPECT_EQ(world_.logs.Count(L"how far the logs were read cannot be told"), 1u);
    disk.FailAt(0, 0, false);
    world_.runtime.AdvanceBy(2min);
    EXPECT_EQ(Recorded(), L"2") << "and not from the beginning";
    monitor_.reset();
    life_.reset();
  }
}

TEST_F(WindowsLogsTest, AReaderThatThrowsIsReplaced) {
  world_.machine.event_log().ThrowNext();
  Log(1);
  Start();
  EXPECT_EQ(Recorded(), L"");
  Log(2);
  world_.runtime.AdvanceBy(61s);
  EXPECT_EQ(Recorded(), L"1 2");
}

TEST_F(WindowsLogsTest, WhatHappenedWithoutConsentIsNeverRecorded) {
  Start();
  Log(1);
  world_.runtime.Settle();
  life_->consent.given = false;
  Log(2);
  world_.runtime.Settle();
  monitor_.reset();
  world_.runtime.AdvanceBy(1min + 200ms);
  Log(3);
  world_.runtime.AdvanceBy(500ms);
  Start();
  EXPECT_EQ(Recorded(), L"") << "of the second in which the consent came nobody knows";
  Kill();
  world_.runtime.AdvanceBy(300ms);
  Log(4);
  Start();
  EXPECT_EQ(Recorded(), L"4");
}

TEST_F(WindowsLogsTest, WhatHappenedWithoutConsentIsNotReadLaterInALogThatWasNotReadBefore) {
  world_.machine.event_log().MoveWithWanted();
  Start();
  life_->consent.given = false;
  Log(1, "System");
  world_.runtime.Settle();
  monitor_.reset();
  world_.machine.event_log().Fail("System", platform::EventLogTrouble::kFailed);
  world_.runtime.AdvanceBy(1min);
  Start();
  world_.runtime.AdvanceBy(2s);
  Log(2);
  world_.runtime.Settle();
  EXPECT_EQ(Recorded(), L"2") << "of the one log, before anything was read of the other";
  Kill();
  Start();
  Log(3);
  world_.runtime.Settle();
  EXPECT_EQ(Recorded(), L"3");
  Kill();
  world_.machine.event_log().Fail("System", std::nullopt);
  Log(4, "System");
  Start();
  EXPECT_EQ(Recorded(), L"4");
  std::wstring kept;
  ASSERT_EQ(life_->store.GetState(WindowsLogsEventMonitor::dataset_id, kBookmarkState, kept), 0);
  EXPECT_TRUE(kept.starts_with(L"begun ") && kept.ends_with(L" Application=2;System=2"));
  life_->store.KeepState(WindowsLogsEventMonitor::dataset_id,
                         {kBookmarkState, L"begun 4102444800 Application=2;System=2"});
  Kill();
  Log(5);
  Start();
  EXPECT_EQ(Recorded(), L"5") << "from then on the clock may be set back";
}

TEST_F(WindowsLogsTest, ALogThatALaterPolicyAddsTellsNothingOfATimeWithoutConsent) {
  world_.machine.event_log().MoveWithWanted();
  Start();
  life_->consent.given = false;
  Log(1);
  Log(2, "Security");
  world_.runtime.Settle();
  monitor_.reset();
  world_.runtime.AdvanceBy(1min);
  Start();
  world_.runtime.AdvanceBy(2s);
  Log(3);
  Log(4, "Security");
  world_.runtime.Settle();
  EXPECT_EQ(Recorded(), L"3");
  for (int life = 0; life < 2; ++life) {
    Start();
    Settings({{L"Channels", life == 0 ? L"0001" : L"0010"}});
    EXPECT_EQ(Recorded(), life == 0 ? L"" : L"4");
  }
  Settings({{L"Channels", L"0011"}});
  Log(5, "Application", 2, -1h);
  Log(6, "Security", 2, -1h);
  Log(7, "Security");
  world_.runtime.Settle();
  EXPECT_EQ(Recorded(), L"4 5 6 7") << "of channels that were read a wrong clock hides nothing";
}

TEST_F(WindowsLogsTest, ChangedSettingsHoldFromTheNextEventOn) {
  Start();
  Settings({{L"Channels", L"0010"}, {L"EventIds", L"1-5, -3"}, {L"LogLevels", L"00000100"}});
  EXPECT_EQ(life_->DatasetContexts().back().item_data().at(L"EventIds"), L"1-5,-3");
  for (const std::uint32_t id : {2u, 3u, 6u, 4u})
    Log(id, "Security", 3);
  Log(5);
  world_.runtime.Settle();
  EXPECT_EQ(Recorded(), L"2 4");
  Settings({{L"Channels", L"0000"}, {L"LogLevels", L"2"}, {L"EventIds", L"5-1"}});
  EXPECT_EQ(life_->DatasetContexts().back().item_data().at(L"Channels"), L"Application, System") << "the defaults";
  EXPECT_TRUE(world_.logs.Has(L"the range 5-1 ends before it begins"));
}

}  // namespace
}  // namespace TVK
