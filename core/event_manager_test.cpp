#include "tvk/event_manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "client/text/string.h"
#include "testing/manager_world.h"

namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only
using Place = MonitorScript::Place;
using testing::ElementsAre;

class EventManagerTest : public testing::Test {
 protected:
  MonitorWorld world_;
  MonitorScript script_;
  const DatasetTable table_ = ScriptedDatasets(script_);
};

TEST_F(EventManagerTest, TheScopeDecidesWhichDatasetsRun) {
  for (const auto& [scope, count, display] : {std::tuple(L"none", 6u, 0), std::tuple(L"basic", 11u, 0),
                                              std::tuple(L"enhance", 20u, 1), std::tuple(L"full", 22u, 1)}) {
    SCOPED_TRACE(TVK::String::UTF16ToUTF8(scope));
    world_.config.SetPolicy(PolicyOf(scope));
    ManagerLife life(world_, table_);
    life.Start();
    world_.runtime.Settle();
    EXPECT_EQ(life.Listed().size(), count) << "the test of the records page knows the scopes of each";
    EXPECT_EQ(script_.running, static_cast<int>(count));
    EXPECT_EQ(life.user_process.starts, display);
    life.manager.Stop();
    EXPECT_EQ(life.user_process.stops, display);
    EXPECT_EQ(world_.runtime.Threads().size(), 1u) << "the bus's";
    EXPECT_EQ(script_.alive, 1) << "the application events'";
  }
  world_.config.SetPolicy(PolicyOf(L"none"));
  ManagerLife life(world_, table_);
  life.Start();
  EXPECT_THAT(life.Listed(), ElementsAre(L"DeviceStatus", L"SystemPowerEvent", L"NetworkEvent", L"StorageEvent",
                                         L"AlexaEvent", L"VitalSignsEvent"));
}

TEST_F(EventManagerTest, EntriesOfThePolicyAreMatchedByIdAndName) {
  const std::wstring cpu = IdOf(L"CPUEvent");
  struct Row {
    const char* what;
    std::vector<std::pair<std::wstring, std::wstring>> datasets;
    std::vector<bool> enabled;
    bool runs;
  };
  for (const Row& row : {
           Row{"an id in small letters", {{TVK::String::ToLower(cpu), L"CPUEvent"}}, {true}, true},
           Row{"an id in braces", {{L"{" + cpu + L"}", L"CPUEvent"}}, {true}, true},
           Row{"another case of the name", {{cpu, L"CpuEvent"}}, {true}, false},
           Row{"another dataset's id", {{IdOf(L"MemoryEvent"), L"CPUEvent"}}, {true}, false},
           Row{"no id", {{L"", L"CPUEvent"}}, {true}, false},
           Row{"listed twice", {{cpu, L"CPUEvent"}, {cpu, L"CPUEvent"}}, {true, true}, true},
           Row{"listed twice, first enabled", {{cpu, L"CPUEvent"}, {cpu, L"CPUEvent"}}, {true, false}, true},
           Row{"listed twice, first disabled", {{cpu, L"CPUEvent"}, {cpu, L"CPUEvent"}}, {false, true}, false},
       }) {
    SCOPED_TRACE(row.what);
    TelemetryPolicy policy = MakePolicy(L"full", row.datasets);
    auto enabled = row.enabled.begin();
    for (DataSet& dataset : policy.datasets)
      dataset.enabled = *enabled++;
    world_.config.SetPolicy(policy);
    ManagerLife life(world_, table_);
    life.Start();
    world_.runtime.Settle();
    script_.TakeNotes();
    const auto listed = [&] { return std::ranges::count(life.Listed(), L"CPUEvent"); };
    EXPECT_EQ(listed(), row.runs ? 1 : 0);
    // The same policy again, told in both ways, changes nothing.
    life.Change(policy);
    life.bus.Publish(TVKNotificationData(4, 18, L"{}"));
    world_.runtime.Settle();
    EXPECT_EQ(listed(), row.runs ? 1 : 0);
    EXPECT_EQ(script_.Count(L"stop CPUEvent"), 0u);
    EXPECT_EQ(script_.Count(L"start(test) CPUEvent"), 0u);
  }
}

TEST_F(EventManagerTest, OnlyEnabledAndApplicableDatasetsRunInTheOrderOfRanks) {
  TelemetryPolicy policy = PolicyOf(L"full", {L"CPUEvent", L"MemoryEvent", L"VitalSignsEvent", L"BatteryEvent"});
  policy.datasets.front().enabled = false;
  std::next(policy.datasets.begin())->applicability.manufacturers = {L"Fabrikam"};
  world_.config.SetPolicy(policy);
  {
    ManagerLife life(world_, table_);
    life.Start();
    EXPECT_THAT(life.Listed(), ElementsAre(L"DeviceStatus", L"SystemPowerEvent", L"NetworkEvent", L"BatteryEvent",
                                           L"VitalSignsEvent"));
  }
  policy.applicability.manufacturers = {L"Fabrikam"};
  world_.config.SetPolicy(policy);
  ManagerLife life(world_, table_);
  life.Start();
  EXPECT_THAT(life.Listed(), ElementsAre(L"DeviceStatus", L"SystemPowerEvent", L"NetworkEvent"));
}

TEST_F(EventManagerTest, WithoutAPolicyItDoesNothingAndWithoutAnAgentItOnlyListens) {
  {
    ManagerLife life(world_, table_);
    life.Start();
    EXPECT_TRUE(life.Listed().empty());
    EXPECT_EQ(world_.runtime.Threads().size(), 1u) << "the bus's";
    life.manager.Stop();
    world_.config.SetPolicy(PolicyOf(L"full", {L"StorageEvent"}));
    life.Start();
    EXPECT_EQ(life.Listed().size(), 4u) << "initialised once more, with a policy, it works";
  }
  ManagerLife life(world_, table_);
  life.manager.Initialize(nullptr);
  life.manager.InitAndStartEventMonitors();
  life.Change(PolicyOf(L"basic"));
  world_.runtime.Settle();
  EXPECT_TRUE(life.Listed().empty());
  EXPECT_TRUE(world_.logs.Has(L"EventManager OnTelemetryScopeChanges serivice=null or deviceidagent=null!"));
  EXPECT_EQ(life.manager.OnServiceControlHandle(1, 0, nullptr, nullptr), 0u);
  life.manager.Stop();
  world_.logs.Clear();
  life.Change(PolicyOf(L"full"));
  world_.runtime.Settle();
  EXPECT_FALSE(world_.logs.Has(L"Recieved internal notification"));
}

TEST_F(EventManagerTest, ASecondInitializeKeepsTheMonitorsAndTheNotifications) {
  world_.config.SetPolicy(PolicyOf(L"full", {L"CPUEvent"}));
  ManagerLife life(world_, table_);
  life.Start();
  life.manager.Initialize(&life.device_ids);
  life.manager.Initialize(nullptr);
  world_.runtime.Settle();
  EXPECT_EQ(world_.runtime.Threads().size(), 6u) << "bus, notifications and four monitors";
  life.Change(PolicyOf(L"full", {L"MemoryEvent"}));
  world_.runtime.Settle();
  EXPECT_EQ(world_.logs.Count(L"Recieved internal notification 4 14"), 1u);
  EXPECT_THAT(life.Listed(), ElementsAre(L"DeviceStatus", L"SystemPowerEvent", L"NetworkEvent", L"MemoryEvent"));
}

TEST_F(EventManagerTest, StopMayComeAtAnyTimeAndAnyNumberOfTimes) {
  world_.config.SetPolicy(PolicyOf(L"full"));
  ManagerLife life(world_, table_);
  life.manager.Stop();
  life.manager.Initialize(&life.device_ids);
  life.manager.Stop();
  EXPECT_EQ(script_.TakeNotes().front(), L"stop DeviceStatus") << "in list order, though never started";
  life.manager.Stop();
  life.Start();
  life.manager.Stop();
  EXPECT_EQ(script_.alive, 1);
  EXPECT_EQ(world_.runtime.Threads().size(), 1u);
}

TEST_F(EventManagerTest, AMonitorThatFailsHarmsNoOther) {
  struct Row {
    Place place;
    const wchar_t* message;
    int running;  // of the four others and the failing one
  };
  for (const Row& row : {
           Row{Place::kMake, L"CPUEvent Initialize dataset failed with exception", 4},
           Row{Place::kInitialize, L"EventManager EventMonitor Initalize or startMonitor error! told to fail", 4},
           Row{Place::kStart, L"EventManager EventMonitor Initalize or startMonitor error! told to fail", 4},
           Row{Place::kControl, L"EventManager::OnServiceControlHandle: CPUEvent failed: told to fail", 5},
           Row{Place::kSettings, L"CPUEvent failed: told to fail", 5},
           Row{Place::kContextChange, L"EventManager::OnDeviceContextChanges: CPUEvent failed: told to fail", 5},
           Row{Place::kRestart, L"EventManager::OnNotification: CPUEvent failed: told to fail", 5},
           Row{Place::kStop, L"EventManager::Stop: CPUEvent failed: told to fail", 5},
       }) {
    SCOPED_TRACE(TVK::String::UTF16ToUTF8(row.message));
    world_.logs.Clear();
    MonitorScript script;
    const DatasetTable table = ScriptedDatasets(script);
    script.FailAt(L"CPUEvent", row.place);
    world_.config.SetPolicy(PolicyOf(L"full", {L"CPUEvent", L"MemoryEvent"}));
    ManagerLife life(world_, table);
    life.Start();
    world_.runtime.Settle();
    EXPECT_EQ(script.running, row.running);
    life.manager.OnServiceControlHandle(13, 4, nullptr, nullptr);
    life.Change(PolicyOf(L"enhance", {L"CPUEvent", L"MemoryEvent", L"BatteryEvent"}));
    world_.runtime.Settle();
    life.manager.OnDeviceContextChanges();
    for (const wchar_t* note : {L"control 13,4,0,0 MemoryEvent", L"restart MemoryEvent", L"settings MemoryEvent",
                                L"context anew MemoryEvent", L"start(test) BatteryEvent"})
      EXPECT_EQ(script.Count(note), 1u) << TVK::String::UTF16ToUTF8(note);
    life.manager.Stop();
    EXPECT_TRUE(world_.logs.Has(row.message));
    EXPECT_EQ(script.Count(L"uninitialize CPUEvent"), row.place == Place::kMake ? 0u : 1u);
    EXPECT_EQ(script.alive, 1);
    EXPECT_EQ(world_.runtime.Threads().size(), 1u);
  }
}

TEST_F(EventManagerTest, EveryControlReachesEveryMonitorInOrder) {
  world_.config.SetPolicy(PolicyOf(L"full", {L"CPUEvent"}));
  ManagerLife life(world_, table_);
  EXPECT_EQ(life.manager.OnServiceControlHandle(1, 2, nullptr, nullptr), 0u);
  life.Start();
  world_.runtime.Settle();
  int data = 7;
  int context = 8;
  for (const unsigned long control : {1ul, 5ul, 11ul, 13ul, 14ul, 128ul, 255ul, 0xFFFFFFFFul}) {
    script_.TakeNotes();
    EXPECT_EQ(life.manager.OnServiceControlHandle(control, 10, &data, &context), 0u);
    const std::wstring note = L"control " + std::to_wstring(control) + L",10,7,8 ";
    EXPECT_THAT(script_.TakeNotes(), ElementsAre(note + L"DeviceStatus", note + L"SystemPowerEvent",
                                                 note + L"NetworkEvent", note + L"CPUEvent"));
  }
}

TEST_F(EventManagerTest, UnknownDatasetsSortToTheFront) {
  ManagerLife life(world_, table_);
  std::list<DataSet> datasets = MakePolicy(L"full", {{IdOf(L"VitalSignsEvent"), L"1"},
                                                     {L"unknown", L"2"},
                                                     {IdOf(L"CPUEvent"), L"3"},
                                                     {L"other", L"4"},
                                                     {IdOf(L"TVKEvent"), L"5"},
                                                     {L"unknown", L"6"}})
                                    .datasets;
  for (int time = 0; time < 2; ++time) {
    life.manager.OrderDatasets(datasets);
    std::wstring order;
    for (const DataSet& dataset : datasets)
      order += dataset.name;
    EXPECT_EQ(order, L"245631");
  }
}

}  // namespace
