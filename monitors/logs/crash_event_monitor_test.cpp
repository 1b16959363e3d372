#include "monitors/logs/crash_event_monitor.h"

#include <gtest/gtest.h>

#include "client/store/failing_disk.h"
#include "client/text/string.h"
#include "monitors/logs/reading_begin.h"
#include "platform/simulated/simulated_event_log.h"
#include "platform/simulated/simulated_memory.h"
#include "platform/simulated/simulated_system.h"
#include "testing/monitor_world.h"

namespace TVK {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only

using Data = std::vector<platform::EventDataField>;

class CrashTest : public testing::Test {
 protected:
  void Log(const char* channel, const char* provider, std::uint32_t id, Data data) {
    world_.machine.event_log().Append({.channel = channel,
                                       .provider = provider,
                                       .id = id,
                                       .level = 2,
                                       .time = world_.runtime.clock().Now(),
                                       .data = std::move(data)});
  }
  void Start() {
    monitor_.reset();
    life_.emplace(world_);
    monitor_.emplace(world_.runtime, std::make_unique<CrashEventMonitor>(life_->services()));
    world_.runtime.Settle();
  }

  MonitorWorld world_;
  std::optional<ServiceLife> life_;
  std::optional<RunningMonitor> monitor_;
};

TEST_F(CrashTest, EachKindSaysWhatCrashedAndNotWhere) {
  const char* const power = "Microsoft-Windows-Kernel-Power";
  const char* const reporting = "Microsoft-Windows-WER-SystemErrorReporting";
  const char* const hardware = "Microsoft-Windows-WHEA-Logger";
  struct Row {
    const char* channel;
    const char* provider;
    std::uint32_t id;
    Data data;
    const wchar_t* item;  ///< Null: it is no crash.
    ItemData recorded;
  };
  const Row rows[] = {
      {"Application",
       "Application Error",
       1000,
       {{"", R"(C:\Users\s3cret\app.exe)"},
        {"", "1.2.3.4"},
        {"", "5f000000"},
        {"", "ntdll.dll"},
        {"", "10.0.1.2"},
        {"", "5f000001"},
        {"", "c0000005"},
        {"", "1234"},
        {"", "s3cret"}},
       kApplicationCrash,
       {{L"Program", L"app.exe"},
        {L"ProgramVersion", L"1.2.3.4"},
        {L"Module", L"ntdll.dll"},
        {L"ModuleVersion", L"10.0.1.2"},
        {L"Code", L"c0000005"}}},
      {"Application", "Application Error", 1001, {{"", "x"}}, nullptr, {}},
      {"Application",
       "Application Hang",
       1002,
       {{"", "slow.exe"}, {"", "2.0"}, {"", "s3cret"}},
       kApplicationHang,
       {{L"Program", L"slow.exe"}, {L"ProgramVersion", L"2.0"}}},
      {"System",
       reporting,
       1001,
       {{"param1", "0x0000009f (0x3, 0x1)"}, {"param2", R"(C:\s3cret.dmp)"}},
       kSystemCrash,
       {{L"Code", L"0x0000009f"}}},
      {"System",
       power,
       41,
       {{"BugcheckCode", "159"}, {"SleepInProgress", "0"}},
       kSystemCrash,
       {{L"Code", L"0x0000009f"}}},
      {"System", power, 41, {{"BugcheckCode", "0"}}, kSystemCrash, {{L"Code", L"0"}}},
      {"System", power, 42, {{"BugcheckCode", "159"}}, nullptr, {}},
      {"System",
       hardware,
       18,
       {{"ErrorSource", "3"}, {"ApicId", "1"}, {"ErrorType", "9"}},
       kHardwareError,
       {{L"Code", L"18"}, {L"ErrorSource", L"3"}, {L"ErrorType", L"9"}}},
      {"Application",
       "systemd-coredump",
       0xFC2E,
       {{"MESSAGE", "s3cret"}, {"COREDUMP_EXE", "/opt/s3cret/app (deleted)"}, {"COREDUMP_SIGNAL_NAME", "SIGSEGV"}},
       kApplicationCrash,
       {{L"Program", L"app"}, {L"Code", L"SIGSEGV"}}},
      {"System", "kernel", 0, {{"MESSAGE", "usb 1-1: s3cret"}}, nullptr, {}},
      {"System", "kernel", 0, {{"MESSAGE", "BUG: kernel NULL pointer dereference"}}, nullptr, {}},
      {"System", "kernel", 0, {{"MESSAGE", "Oops: 0002 [#1] SMP s3cret"}}, kSystemCrash, {{L"Code", L"oops"}}},
      {"System", "kernel", 0, {{"MESSAGE", "Kernel panic - not syncing: s"}}, kSystemCrash, {{L"Code", L"panic"}}},
      {"System", "kernel", 0, {{"MESSAGE", "EDAC MC0: 1 CE on DIMM"}}, kHardwareError, {{L"Code", L"memory"}}},
      {"System",
       "kernel",
       0,
       {{"MESSAGE", "mce: [Hardware Error]: Machine check events logged"}},
       kHardwareError,
       {{L"Code", L"machine check"}}},
      {"System", "kernel", 0, {{"MESSAGE", "pcieport 0000:00:1c.0: enabled"}}, nullptr, {}},
      {"System",
       "kernel",
       0,
       {{"MESSAGE", "[Hardware Error]: Machine check events logged"}},
       kHardwareError,
       {{L"Code", L"machine check"}}},
      {"System",
       "kernel",
       0,
       {{"MESSAGE", "EDAC MC12: 3 UE memory read error"}},
       kHardwareError,
       {{L"Code", L"memory"}}},
      {"System",
       "kernel",
       0,
       {{"MESSAGE", "pcieport 0000:00:1c.5: AER: PCIe Bus Error: severity=Corrected"}},
       kHardwareError,
       {{L"Code", L"PCIe"}}},
      {"System",
       "kernel",
       0,
       {{"MESSAGE", "general protection fault, maybe for address 0x0: 0000 [#12]"}},
       kSystemCrash,
       {{L"Code", L"oops"}}},
      {"System",
       "kernel",
       0,
       {{"MESSAGE", "Internal error: Oops: 96000006 [#1] SMP"}},
       kSystemCrash,
       {{L"Code", L"oops"}}},
      {"System", "systemd-pstore", 0, {{"DUMP", "Panic#1 Part2"}}, nullptr, {}},
      {"System", "systemd-pstore", 0, {{"DUMP", "Oops#1 Part1"}}, nullptr, {}},
      {"System", "systemd-pstore", 0, {{"DUMP", "Panic#1 Part1"}}, kSystemCrash, {{L"Code", L"panic"}}},
      {"System",
       "kernel",
       0,
       {{"MESSAGE", "pcieport 0000:00:1c.0: PCIe Bus Error: severity=Corrected"}},
       kHardwareError,
       {{L"Code", L"PCIe"}}},
  };
  Start();
  std::size_t items = 0;
  for (const Row& row : rows) {
    SCOPED_TRACE(&row - rows);
    Log(row.channel, row.provider, row.id, row.data);
    world_.runtime.AdvanceBy(CrashEventMonitor::kSameWithin + 1s);
    const auto written = life_->Items();
    ASSERT_EQ(written.size(), row.item == nullptr ? items : ++items);
    if (row.item == nullptr) continue;
    EXPECT_EQ(written.back().item_name(), row.item);
    ItemData data = written.back().item_data();
    EXPECT_EQ(data.erase(L"TimeCreated"), 1u);
    ItemData expected = row.recorded;
    expected[L"Source"] = String::UTF8ToUTF16(row.provider);
    expected[L"Count"] = L"1";
    EXPECT_EQ(data, expected);
  }
}

TEST_F(CrashTest, LinesOfTheKernelThatOnlyLookLikeACrashAreNone) {
  Start();
  for (const char* const line :
       {"EDAC MC: Ver: 3.0.0", "EDAC MC: ECC not enabled", "EDAC MC0: Giving out device to module skx_edac",
        "EDAC MC0: 1 CE", "usb 1-1: Product: Keyboard [#3]", "usb 1-1: Product: Oops: 0002 [#1] SMP",
        "a: 0000 [#1] b[12]: segfault at 0 ip 0", "Oops: 0000 [#1][12]: segfault at 0 ip 0", "Oops: zzzz [#1] SMP",
        "Oops: 002 [#1] SMP", "Oops: 0002 [#] SMP", "traps: Oops: 0000 [#1] general protection fault ip:0",
        "EDAC MC0: 1 CE [12]: segfault at 0", "cp[12]: PCIe Bus Error: severity",
        "pcieport x: PCIe Bus Error: ", "a [Hardware Error]: Machine check events logged"}) {
    Log("System", "kernel", 0, {{"MESSAGE", line}});
    world_.runtime.AdvanceBy(CrashEventMonitor::kSameWithin + 1s);
    EXPECT_TRUE(life_->Items().empty()) << line;
  }
}

TEST_F(CrashTest, MemoryErrorsAreThoseThatTheControllersCount) {
  auto& errors = world_.machine.memory().errors;
  const auto count = [&](std::uint64_t corrected, std::uint64_t uncorrected) {
    errors.Set({{"mc0", corrected, uncorrected}, {"mc1", 0, 0}});
  };
  const auto line = [&] { Log("System", "kernel", 0, {{"MESSAGE", "EDAC MC0: 1 CE on DIMM"}}); };
  const auto told = [&] {
    world_.runtime.AdvanceBy(CrashEventMonitor::kSameWithin + 1s);
    std::wstring all;
    for (const ItemEvent& item : life_->Items(kHardwareError)) {
      const ItemData& data = item.item_data();
      all += data.contains(L"Corrected") ? data.at(L"Controller") + L":" + data.at(L"Corrected") + L"+" +
                                               data.at(L"Uncorrected") + L"=" + data.at(L"Count") + L" "
                                         : L"line=" + data.at(L"Count") + L" ";
    }
    return all;
  };
  const auto boot = [&](const char* id) {
    world_.machine.system().Change([&](auto& state) {
      state.boot_id = id;
      state.boot_time = world_.runtime.clock().NowSeconds();
    });
  };
  line();
  world_.runtime.AdvanceBy(1min);
  boot("a");
  line();
  count(2, 1);
  Start();
  EXPECT_EQ(told(), L"mc0:2+1=3 line=1 ") << "of the boot before the log alone tells";
  count(5, 1);
  line();
  EXPECT_EQ(told(), L"mc0:2+1=3 line=1 mc0:3+0=3 ");
  count(6, 1);
  world_.runtime.Suspend(25h);
  EXPECT_EQ(told(), L"mc0:2+1=3 line=1 mc0:3+0=3 mc0:1+0=1 ") << "once a day what nobody logged";
  Start();
  EXPECT_EQ(told(), L"") << "told once";
  boot("b");
  count(7, 1);
  Start();
  EXPECT_EQ(told(), L"mc0:7+1=8 ") << "counted anew";
  count(3, 0);
  Start();
  EXPECT_EQ(told(), L"mc0:3+0=3 ") << "the driver was loaded again";
  life_->consent.given = false;
  monitor_.reset();
  count(9, 0);
  Start();
  EXPECT_EQ(told(), L"") << "what happened without consent";
  count(10, 0);
  Start();
  EXPECT_EQ(told(), L"mc0:1+0=1 ");
  life_->store.KeepState(CrashEventMonitor::dataset_id, {kBookmarkState, kWithdrawnPlace});
  count(11, 0);
  world_.runtime.AdvanceBy(25h);
  EXPECT_EQ(told(), L"mc0:1+0=1 ") << "nor before the reading knows of a withdrawal";
  line();
  world_.runtime.AdvanceBy(2min);
  EXPECT_EQ(told(), L"mc0:1+0=1 ");
  life_->consent.given = false;
  monitor_.reset();
  count(12, 0);
  FailingDisk disk;
  life_.emplace(world_);
  disk.FailAt(1, SQLITE_FULL, true);
  monitor_.emplace(world_.runtime, std::make_unique<CrashEventMonitor>(life_->services()));
  world_.runtime.Settle();
  disk.FailAt(0, 0, false);
  world_.runtime.AdvanceBy(2min);
  count(13, 0);
  line();
  EXPECT_EQ(told(), L"mc0:1+0=1 ") << "nor when the store could not note it at once";
  const auto keep = [&] { return life_->store.KeepState(CrashEventMonitor::dataset_id, {L"another", L"1"}); };
  std::wstring kept;
  keep();  // so that what was read before is read again
  disk.FailAt(1, SQLITE_IOERR_CORRUPTFS, true);
  life_->store.GetState(CrashEventMonitor::dataset_id, L"another", kept);
  keep();
  EXPECT_FALSE(life_->store.is_open());
  disk.FailAt(0, 0, false);
  count(15, 0);
  world_.runtime.AdvanceBy(24h);
  EXPECT_EQ(told(), L"mc0:1+0=1 mc0:2+0=2 ") << "a closed store is opened anew";
  monitor_.reset();
  life_.reset();
}

TEST_F(CrashTest, OneThatHasReadNothingKeepsThatItBegan) {
  std::wstring kept;
  const auto get = [&] { return life_->store.GetState(CrashEventMonitor::dataset_id, kBookmarkState, kept); };
  world_.machine.event_log().RefuseReaders();
  Start();
  monitor_.reset();
  world_.machine.event_log().RefuseReaders(platform::EventLogFailure::kNone);
  ASSERT_EQ(get(), 0) << "what a start without consent marks";
  EXPECT_EQ(kept, L"since 0");
  Log("Application", "Application Hang", 1002, {{"", "a"}, {"", "1"}});
  Start();
  monitor_.reset();
  EXPECT_EQ(life_->Items(kApplicationHang).size(), 1u) << "and which takes nothing away";
  life_->store.KeepState(CrashEventMonitor::dataset_id, {kBookmarkState, kWithdrawnPlace});
  Log("Application", "Application Hang", 1002, {{"", "b"}, {"", "1"}});
  world_.runtime.AdvanceBy(1min);
  Start();
  monitor_.reset();
  EXPECT_TRUE(life_->Items(kApplicationHang).empty());
}

TEST_F(CrashTest, ALogThatComesLaterIsReadThen) {
  using enum platform::EventLogFailure;
  const auto said = [&] { return world_.logs.Count(L"this system has not the event log"); };
  world_.machine.event_log().RefuseReaders(kChannelNotFound);
  Start();
  world_.runtime.AdvanceBy(24h);
  EXPECT_EQ(said(), 1u) << "once";
  Log("Application", "Application Hang", 1002, {{"", "a"}, {"", "1"}});
  world_.machine.event_log().RefuseReaders(kNone);
  world_.runtime.AdvanceBy(kLastLogRetry + CrashEventMonitor::kSameWithin + 1s);
  EXPECT_EQ(life_->Items(kApplicationHang).size(), 1u);
  world_.machine.event_log().RefuseReaders(kNotSupported);
  Start();
  const std::uint64_t wake_ups = world_.runtime.WakeUps();
  world_.runtime.AdvanceBy(24h);
  EXPECT_EQ(world_.runtime.WakeUps(), wake_ups) << "one that cannot come is not waited for";
}

TEST_F(CrashTest, WhatWasLoggedWithoutConsentIsNeverTold) {
  const auto hang = [&](const char* channel, const char* program) {
    Log(channel, "Application Hang", 1002, {{"", program}, {"", "1"}});
    world_.runtime.AdvanceBy(CrashEventMonitor::kSameWithin + 1s);
  };
  const auto told = [&] {
    std::wstring all;
    for (const ItemEvent& item : life_->Items(kApplicationHang))
      all += item.item_data().at(L"Program") + L" ";
    return all;
  };
  const auto withdraw = [&] {
    life_->consent.given = false;
    life_->store.KeepState(CrashEventMonitor::dataset_id, {kBookmarkState, kWithdrawnPlace});
  };
  Start();
  hang("Application", "a");
  withdraw();
  hang("Application", "b");
  monitor_.reset();
  Log("System", "Microsoft-Windows-WHEA-Logger", 18, {{"ErrorSource", "3"}});
  world_.runtime.AdvanceBy(1min);
  Start();
  hang("Application", "c");
  EXPECT_EQ(told(), L"c ");
  EXPECT_TRUE(life_->Items(kHardwareError).empty());
  hang("Application", "d");
  life_->consent.given = false;
  hang("Application", "e");
  life_->consent.given = true;
  hang("Application", "f");
  world_.runtime.AdvanceBy(1h);
  hang("Application", "g");
  world_.runtime.AdvanceBy(1h);
  EXPECT_EQ(told(), L"c d g ") << "given again before the monitor was stopped";
  withdraw();
  hang("Application", "h");
  life_->consent.given = true;
  monitor_.reset();
  Start();
  EXPECT_EQ(told(), L"") << "the same, and the stop comes";
}

TEST_F(CrashTest, WhatTheStoreDidNotTakeIsReadAgain) {
  const auto crash = [&](const char* program) {
    Log("Application", "Application Hang", 1002, {{"", program}, {"", "1"}});
    world_.runtime.Settle();
  };
  const auto told = [&] {
    std::wstring all;
    for (const ItemEvent& item : life_->Items(kApplicationHang))
      all += item.item_data().at(L"Program") + L" ";
    return all;
  };
  FailingDisk disk;
  Start();
  crash("a");
  disk.FailAt(1, SQLITE_FULL, true);
  crash("b");
  disk.FailAt(0, 0, false);
  world_.runtime.AdvanceBy(2min);
  EXPECT_EQ(told(), L"a b ") << "after another crash";
  crash("c");
  disk.FailAt(1, SQLITE_FULL, true);
  world_.runtime.AdvanceBy(CrashEventMonitor::kSameWithin + 1s);
  disk.FailAt(0, 0, false);
  EXPECT_EQ(told(), L"a b ");
  world_.runtime.AdvanceBy(2min);
  EXPECT_EQ(told(), L"a b c ") << "after a while";
  crash("d");
  disk.FailAt(1, SQLITE_FULL, true);
  monitor_.reset();
  disk.FailAt(0, 0, false);
  Start();
  monitor_.reset();
  EXPECT_EQ(told(), L"d ") << "after a stop";
  life_.reset();
}

TEST_F(CrashTest, ALoopOfCrashesIsCounted) {
  const auto crash = [&](const char* program) {
    Log("Application", "Application Hang", 1002, {{"", program}, {"", "1"}});
  };
  Start();
  for (int i = 0; i < 5; ++i) {
    crash("a.exe");
    world_.runtime.AdvanceBy(1s);
  }
  EXPECT_TRUE(life_->Items().empty());
  crash("b.exe");
  world_.runtime.Settle();
  ASSERT_EQ(life_->Items(kApplicationHang).size(), 1u) << "another one: what came before goes out";
  EXPECT_EQ(life_->Items(kApplicationHang)[0].item_data().at(L"Count"), L"5");
  monitor_.reset();
  EXPECT_EQ(life_->Items(kApplicationHang).size(), 2u) << "a stop loses none";
  for (const auto pause : std::initializer_list<std::chrono::seconds>{1h, 10s, 1s}) {
    world_.runtime.AdvanceBy(pause);
    crash("c.exe");
  }
  Start();
  world_.runtime.AdvanceBy(CrashEventMonitor::kSameWithin);
  ASSERT_EQ(life_->Items(kApplicationHang).size(), 2u) << "read at once, and not logged at once";
  EXPECT_EQ(life_->Items(kApplicationHang)[0].item_data().at(L"Count"), L"2");
  Start();
  const std::uint64_t wake_ups = world_.runtime.WakeUps();
  world_.runtime.AdvanceBy(48h);
  EXPECT_TRUE(life_->Items(kApplicationHang).empty()) << "and none is read twice";
  EXPECT_EQ(world_.runtime.WakeUps(), wake_ups) << "nothing wakes without an event";
}

TEST_F(CrashTest, WhatIsReadLateIsCountedByWhenItHappened) {
  struct Row {
    std::vector<std::chrono::seconds> times;  ///< Of one program's hangs while no service ran.
    const wchar_t* counts;
  };
  auto day = world_.runtime.clock().Now();
  for (const Row& row : {
           Row{{0s, 6s, 10s, 11s}, L"3 1 "},
           Row{{0s, 9s, 18s, 3600s}, L"2 1 1 "},
           Row{{0s, -10s, -11s}, L"2 1 "},  // the clock was set back
           Row{{0s, -3600s, -3600s}, L"1 2 "},
       }) {
    SCOPED_TRACE(row.counts);
    day += 24h;
    for (const std::chrono::seconds time : row.times) {
      world_.machine.event_log().Append({.channel = "Application",
                                         .provider = "Application Hang",
                                         .id = 1002,
                                         .level = 2,
                                         .time = day + time,
                                         .data = {{"", "a.exe"}, {"", "1"}}});
    }
    Start();
    monitor_.reset();
    std::wstring counts;
    for (const ItemEvent& item : life_->Items(kApplicationHang))
      counts += item.item_data().at(L"Count") + L" ";
    EXPECT_EQ(counts, row.counts);
  }
}

TEST_F(CrashTest, ALogThatWasEmptiedOrOverwrittenIsToldOnceAndInItsPlace) {
  const auto crash = [&](const char* program) {
    Log("Application", "Application Hang", 1002, {{"", program}, {"", "1"}});
  };
  const auto told = [&] {
    world_.runtime.Settle();
    std::wstring all;
    for (const ItemEvent& item : life_->Items()) {
      const ItemData& data = item.item_data();
      all += data.contains(L"Program") ? data.at(L"Program") + L" "
                                       : data.at(L"Channel") + L":" + data.at(L"Reason") + L" ";
    }
    return all;
  };
  Start();
  crash("a");
  crash("a");
  EXPECT_EQ(told(), L"") << "there may be more of them";
  world_.machine.event_log().Clear("Application");
  crash("a");
  EXPECT_EQ(told(), L"a Application:cleared ");
  crash("a");
  world_.runtime.Settle();
  world_.machine.event_log().Clear("Application");
  crash("b");
  EXPECT_EQ(told(), L"a Application:cleared a Application:cleared ") << "another time";
  monitor_.reset();
  EXPECT_EQ(told(), L"a Application:cleared a Application:cleared b ");
  for (const char* const program : {"c", "d", "e"})
    crash(program);
  world_.machine.event_log().DropOldest("Application", 3);
  Start();
  monitor_.reset();
  EXPECT_EQ(told(), L"Application:gap e ");
  EXPECT_EQ(life_->Items(L"LogInterrupted").at(0).item_data(),
            (ItemData{{L"Channel", L"Application"}, {L"Reason", L"gap"}, {L"Lost", L"2"}}));
  Start();
  monitor_.reset();
  EXPECT_EQ(told(), L"");
}

}  // namespace
}  // namespace TVK
