#include "tvk/event_manager.h"

#include <algorithm>
#include <limits>

#include "client/store/failing_disk.h"
#include "client/text/string.h"
#include "core/manager_test.h"
#include "core/monitor_entry.h"
#include "testing/memory_shortage.h"

namespace TVK {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only
using Place = MonitorScript::Place;
using testing::ElementsAre;

class EventManagerTest : public ManagerTest {};

TEST_F(EventManagerTest, TheScopeDecidesWhichDatasetsRun) {
  for (const auto& [scope, count, display] : {std::tuple(L"none", 6u, 0), std::tuple(L"basic", 11u, 0),
                                              std::tuple(L"enhance", 20u, 1), std::tuple(L"full", 22u, 1)}) {
    SCOPED_TRACE(String::UTF16ToUTF8(scope));
    Start(PolicyOf(scope));
    EXPECT_EQ(life_->Listed().size(), count) << "the test of the records page knows the scopes of each";
    EXPECT_EQ(script_.running, static_cast<int>(count));
    EXPECT_EQ(life_->user_process.starts, display);
    EXPECT_FALSE(world_.logs.Has(L"_devicePathForTelemetry is true"));
    life_->manager.Stop();
    EXPECT_EQ(life_->user_process.stops, display);
    EXPECT_EQ(Threads(), 1u) << "the bus's";
    EXPECT_EQ(script_.alive, 1) << "the application events'";
  }
}

TEST_F(EventManagerTest, AConsentThatWasWithdrawnWhileNoServiceRanIsNoted) {
  Start(PolicyOf(L"full"));
  const auto place = [&](const wchar_t* dataset) {
    std::wstring kept = L"none";
    life_->composition.store().GetState(IdOf(dataset), kBookmarkState, kept);
    return kept;
  };
  for (const wchar_t* const dataset : {L"CrashEvent", L"EventViewerLogsEvent"})
    life_->composition.store().KeepState(IdOf(dataset), {kBookmarkState, L"here"});
  Start(PolicyOf(L"basic"));
  EXPECT_EQ(place(L"CrashEvent"), kWithdrawnPlace);
  EXPECT_EQ(place(L"EventViewerLogsEvent"), L"here");
  EXPECT_EQ(place(L"BatteryEvent"), L"none") << "nothing to go on from";
  life_->composition.store().KeepState(IdOf(L"CrashEvent"), {kBookmarkState, L"here"});
  life_.reset();
  world_.config.SetPolicy(std::nullopt);
  life_.emplace(world_, table_);
  life_->Start();
  for (const wchar_t* const dataset : {L"CrashEvent", L"EventViewerLogsEvent"})
    EXPECT_EQ(place(dataset), kWithdrawnPlace) << "without a policy";
}

TEST_F(EventManagerTest, AWithdrawnConsentIsNotedWhateverItsMonitorDoes) {
  const auto place = [&] {
    std::wstring kept = L"none";
    life_->composition.store().GetState(IdOf(L"CrashEvent"), kBookmarkState, kept);
    return kept;
  };
  const auto keep = [&] { life_->composition.store().KeepState(IdOf(L"CrashEvent"), {kBookmarkState, L"here"}); };
  FailingDisk disk;
  Start(PolicyOf(L"full"));
  keep();
  Change(PolicyOf(L"basic"));
  EXPECT_EQ(place(), kWithdrawnPlace) << "one that never noted it";
  keep();
  Change(PolicyOf(L"full"));
  EXPECT_EQ(place(), L"here");

  const auto gate = world_.runtime.MakeEvent(platform::EventReset::kManual);
  script_.gate = {L"CrashEvent", Place::kStop, gate.get()};
  Change(PolicyOf(L"basic"));
  world_.runtime.AdvanceBy(std::chrono::seconds(2));
  EXPECT_EQ(place(), L"here") << "it may still write";
  gate->Set();
  world_.runtime.Settle();
  EXPECT_EQ(place(), kWithdrawnPlace) << "once it has ended";

  Change(PolicyOf(L"full"));
  keep();
  gate->Reset();
  script_.gate = {L"CrashEvent", Place::kStop, gate.get()};
  Change(PolicyOf(L"basic"));
  Change(PolicyOf(L"full"));
  gate->Set();
  world_.runtime.Settle();
  EXPECT_EQ(place(), kWithdrawnPlace) << "also where the consent was there again by then";

  Change(PolicyOf(L"full"));
  keep();
  disk.FailAt(1, SQLITE_FULL, true);
  Change(PolicyOf(L"basic"));
  EXPECT_EQ(place(), L"here");
  EXPECT_EQ(world_.logs.Count(L"cannot be noted"), 1u);
  Change(PolicyOf(L"basic", {L"CPUEvent"}));
  EXPECT_EQ(world_.logs.Count(L"cannot be noted"), 1u);
  disk.FailAt(0, 0, false);
  Change(PolicyOf(L"full"));
  EXPECT_EQ(place(), kWithdrawnPlace) << "noted late, and ahead of the start";
  life_.reset();
}

TEST_F(EventManagerTest, AConsentThatWasWithdrawnIsNotedInAStoreThatCannotBeOpenedAtFirst) {
  FailingDisk disk;
  Start(PolicyOf(L"full"));
  life_->composition.store().KeepState(IdOf(L"CrashEvent"), {kBookmarkState, L"here"});
  life_.reset();
  world_.config.SetPolicy(PolicyOf(L"basic"));
  disk.set_read_only(true);
  life_.emplace(world_, table_);
  ASSERT_FALSE(life_->composition.store().is_open());
  disk.set_read_only(false);
  life_->Start();
  std::wstring kept;
  EXPECT_EQ(life_->composition.store().GetState(IdOf(L"CrashEvent"), kBookmarkState, kept), 0);
  EXPECT_EQ(kept, kWithdrawnPlace);
  life_.reset();
}

TEST_F(EventManagerTest, AnEntryThatIsWrittenOtherwiseStartsAndStaysAlike) {
  TelemetryPolicy policy = PolicyOf(L"full", {L"CPUEvent", L"CPUEvent", L"MemoryEvent", L"BatteryEvent"});
  auto entry = policy.datasets.begin();
  entry->id = L"{" + String::ToLower(entry->id) + L"}";
  std::next(entry)->enabled = false;  // a second entry does not count
  std::next(entry, 2)->name = L"memoryEvent";
  Start(policy);
  script_.TakeNotes();
  life_->composition.bus().Publish(TVKNotificationData(4, 18, L"{}"));
  Change(policy);
  EXPECT_THAT(life_->Listed(),
              ElementsAre(L"DeviceStatus", L"SystemPowerEvent", L"NetworkEvent", L"CPUEvent", L"BatteryEvent"));
  EXPECT_EQ(script_.Count(L"stop CPUEvent"), 0u);
}

TEST_F(EventManagerTest, OnlyEnabledAndApplicableDatasetsRunInTheOrderOfRanks) {
  TelemetryPolicy policy = PolicyOf(L"full", {L"CPUEvent", L"MemoryEvent", L"VitalSignsEvent", L"BatteryEvent"});
  policy.datasets.front().enabled = false;
  std::next(policy.datasets.begin())->applicability.manufacturers = {L"Fabrikam"};
  Start(policy);
  EXPECT_THAT(life_->Listed(),
              ElementsAre(L"DeviceStatus", L"SystemPowerEvent", L"NetworkEvent", L"BatteryEvent", L"VitalSignsEvent"));
  policy.applicability.manufacturers = {L"Fabrikam"};
  Start(policy);
  EXPECT_THAT(life_->Listed(), ElementsAre(L"DeviceStatus", L"SystemPowerEvent", L"NetworkEvent"));

  script_.TakeNotes();
  int data = 7;
  int context = 8;
  EXPECT_EQ(life_->manager.OnServiceControlHandle(0xFFFFFFFF, 10, &data, &context), 0u);
  const std::wstring note = L"control 4294967295,10,7,8 ";
  EXPECT_THAT(script_.TakeNotes(),
              ElementsAre(note + L"DeviceStatus", note + L"SystemPowerEvent", note + L"NetworkEvent"));
  life_->manager.OnServiceControlHandle(13, 0x12, nullptr, nullptr);
  const std::wstring control = L"control 13,18,0,0 ";
  const std::wstring resume = L"system event 2 ";
  EXPECT_THAT(script_.TakeNotes(),
              ElementsAre(control + L"DeviceStatus", control + L"SystemPowerEvent", control + L"NetworkEvent",
                          resume + L"DeviceStatus", resume + L"SystemPowerEvent", resume + L"NetworkEvent"));
}

TEST_F(EventManagerTest, WithoutAPolicyItDoesNothingAndWithoutAnAgentItOnlyListens) {
  life_.emplace(world_, table_);
  life_->Start();
  EXPECT_TRUE(life_->Listed().empty());
  EXPECT_EQ(Threads(), 1u) << "the bus's";
  life_->manager.Stop();
  world_.config.SetPolicy(PolicyOf(L"full", {L"StorageEvent"}));
  life_->Start();
  EXPECT_EQ(life_->Listed().size(), 4u) << "initialised once more, with a policy, it works";

  life_.emplace(world_, table_);
  life_->manager.Initialize(nullptr);
  life_->manager.InitAndStartEventMonitors();
  Change(PolicyOf(L"basic"));
  EXPECT_TRUE(life_->Listed().empty());
  EXPECT_EQ(life_->manager.OnServiceControlHandle(1, 0, nullptr, nullptr), 0u);
  life_->manager.Stop();
  world_.logs.Clear();
  Change(PolicyOf(L"full"));
  EXPECT_FALSE(world_.logs.Has(L"Recieved internal notification"));

  life_->device_ids.throws = true;
  life_->Start();
  world_.runtime.Settle();
  EXPECT_EQ(life_->manager.get_DeviceId(), L"");
  EXPECT_FALSE(life_->manager.get_device_context_id().empty()) << "an agent that throws has no ids";
  EXPECT_EQ(script_.running, static_cast<int>(life_->Listed().size()));
}

TEST_F(EventManagerTest, ASecondInitializeKeepsTheMonitorsAndTheNotifications) {
  Start(PolicyOf(L"full", {L"CPUEvent"}));
  life_->manager.Initialize(&life_->device_ids);
  life_->manager.Initialize(nullptr);
  world_.runtime.Settle();
  EXPECT_EQ(Threads(), 6u) << "bus, notifications and four monitors";
  Change(PolicyOf(L"full", {L"MemoryEvent"}));
  EXPECT_EQ(world_.logs.Count(L"Recieved internal notification 4 14"), 1u);
  EXPECT_THAT(life_->Listed(), ElementsAre(L"DeviceStatus", L"SystemPowerEvent", L"NetworkEvent", L"MemoryEvent"));
}

TEST_F(EventManagerTest, StopMayComeAtAnyTimeAndAnyNumberOfTimes) {
  world_.config.SetPolicy(PolicyOf(L"full"));
  life_.emplace(world_, table_);
  life_->manager.Stop();
  life_->manager.Initialize(&life_->device_ids);
  life_->manager.Stop();
  EXPECT_EQ(script_.TakeNotes().front(), L"stop DeviceStatus") << "in list order, though never started";
  life_->manager.Stop();
  EXPECT_TRUE(life_->manager.get_FirstInvocation());
  life_->Start();
  EXPECT_FALSE(life_->manager.get_FirstInvocation()) << "the life before wrote the context";
  life_->manager.Stop();
  EXPECT_EQ(script_.alive, 1);
  EXPECT_EQ(Threads(), 1u);
}

TEST_F(EventManagerTest, KnowsSinceWhenItsOwnDatasetsRun) {
  const auto since = [this](std::wstring_view dataset) {
    const auto all = life_->manager.access().Status().datasets;
    return std::ranges::find(all, dataset, [](const DatasetStatus& one) { return one.dataset->row.name; })->since;
  };
  const auto start = world_.runtime.clock().Now();
  Start(PolicyOf(L"full", {L"CPUEvent"}));
  world_.runtime.AdvanceBy(1h);
  EXPECT_EQ(since(L"TVKEvent"), std::nullopt);
  Change(PolicyOf(L"full", {L"TVKEvent"}));
  const auto admitted = world_.runtime.clock().Now();
  world_.runtime.AdvanceBy(1h);
  Change(PolicyOf(L"full", {L"TVKEvent", L"CPUEvent"}));
  EXPECT_EQ(since(L"TVKEvent"), admitted);
  EXPECT_LT(since(L"DeviceContext"), start + 1min);
  Change(PolicyOf(L"none", {L"TVKEvent"}));
  EXPECT_EQ(since(L"TVKEvent"), std::nullopt);
  life_->manager.Stop();
  EXPECT_EQ(since(L"DeviceContext"), std::nullopt);
  world_.runtime.AdvanceBy(1h);
  life_->Start();
  world_.runtime.Settle();
  EXPECT_GE(since(L"DeviceContext"), start + 3h) << "of this life";
}

TEST_F(EventManagerTest, SaysWhatRunsAndWhyNotWhenItChanges) {
  TelemetryPolicy policy = PolicyOf(L"enhance", {L"CPUEvent", L"MemoryEvent", L"BatteryEvent", L"DisplayEvent"});
  std::next(policy.datasets.begin())->name = L"MemoryEvents";
  std::next(policy.datasets.begin(), 2)->applicability.models = {L"Other"};
  Start(policy);
  for (const wchar_t* line :
       {L"CPUEvent: runs, and collects nothing yet",
        L"MemoryEvent: does not run: name mismatch (its id stands beside the name \"MemoryEvents\")",
        L"DisplayEvent: runs", L"NetworkEvent: runs",
        L"BatteryEvent: does not run: not applicable (the dataset's filter: model is", L"TVKEvent: does not run",
        L"datasets[1].name: the dataset of this id is named"})
    EXPECT_EQ(world_.logs.Count(line), 1u) << String::UTF16ToUTF8(line);
  Change(policy);
  life_->composition.bus().Publish(TVKNotificationData(4, 18, L"{}"));
  world_.runtime.Settle();
  EXPECT_EQ(world_.logs.Count(L"CPUEvent: runs"), 1u) << "nothing changed";
  policy.telemetry_scope = L"none";
  Change(policy);
  EXPECT_EQ(world_.logs.Count(L"CPUEvent: does not run: scope (\"none\" is not among basic,enhance,full)"), 1u);
  life_->manager.Stop();
  life_->manager.Initialize(&life_->device_ids);
  life_->manager.InitAndStartEventMonitors();
  EXPECT_EQ(world_.logs.Count(L"CPUEvent: does not run"), 2u) << "a start tells everything";
}

TEST_F(EventManagerTest, AMonitorThatIsToBeStoppedIsOutOfReach) {
  const ServiceLife service(world_);
  const Log log;
  std::string failures;
  const auto on_failure = [&](const std::string& reason) { failures += reason; };
  const Dataset& cpu = *table_.FindByName(L"CPUEvent");
  script_.failure = {L"CPUEvent", Place::kStart};
  MonitorEntry failing(world_.runtime, log, cpu, service.services(), on_failure);
  EXPECT_TRUE(failing.Start(L"caller"));
  world_.runtime.Settle();
  EXPECT_TRUE(failing.HasFailed());
  EXPECT_EQ(failures, "told to fail");
  failing.JoinAndDelete();
  MonitorEntry entry(world_.runtime, log, cpu, service.services(), on_failure);
  entry.MarkLeaving();
  EXPECT_FALSE(entry.Start(L"caller"));
  entry.Call(L"caller", [](EventMonitorBase&) { FAIL(); });
  EXPECT_TRUE(entry.ClaimStop());
  EXPECT_FALSE(entry.ClaimStop()) << "one stops it";
}

TEST_F(EventManagerTest, AMonitorThatFailsHarmsNoOther) {
  constexpr wchar_t kThrown[] = L"EventManager EventMonitor Initalize or startMonitor error! told to fail";
  // Where it fails, what is logged, and how many of the four others and itself run.
  for (const auto& [place, message, running] :
       {std::tuple(Place::kMake, L"CPUEvent Initialize dataset failed with exception", 4),
        std::tuple(Place::kInitialize, kThrown, 4), std::tuple(Place::kStart, kThrown, 4),
        std::tuple(Place::kControl, L"EventManager::OnServiceControlHandle: CPUEvent failed: told to fail", 5),
        std::tuple(Place::kSettings, L"CPUEvent failed: told to fail", 5),
        std::tuple(Place::kContextChange, L"EventManager::OnDeviceContextChanges: CPUEvent failed: told to fail", 5),
        std::tuple(Place::kRestart, L"EventManager::OnNotification: CPUEvent failed: told to fail", 5),
        std::tuple(Place::kUnInitialize, L"EventManager::Stop: CPUEvent failed: told to fail", 5),
        std::tuple(Place::kStop, L"EventManager::Stop: CPUEvent failed: told to fail", 5)}) {
    SCOPED_TRACE(String::UTF16ToUTF8(message));
    world_.logs.Clear();
    script_.TakeNotes();
    script_.failure = {L"CPUEvent", place};
    Start(PolicyOf(L"full", {L"CPUEvent", L"MemoryEvent"}));
    EXPECT_EQ(script_.running, running);
    const auto why = WhyOf(L"CPUEvent");
    EXPECT_EQ(why, place == Place::kMake ? "not started" : running == 4 ? "failed" : "runs");
    life_->manager.OnServiceControlHandle(13, 4, nullptr, nullptr);
    Change(PolicyOf(L"enhance", {L"CPUEvent", L"MemoryEvent", L"BatteryEvent"}));
    life_->manager.OnDeviceContextChanges();
    for (const wchar_t* note : {L"control 13,4,0,0 MemoryEvent", L"restart MemoryEvent", L"settings MemoryEvent",
                                L"context anew MemoryEvent", L"start(test) BatteryEvent"})
      EXPECT_EQ(script_.Count(note), 1u) << String::UTF16ToUTF8(note);
    life_->manager.Stop();
    EXPECT_TRUE(world_.logs.Has(message));
    EXPECT_EQ(script_.Count(L"uninitialize, may write CPUEvent"), place == Place::kMake ? 0u : 1u);
    EXPECT_EQ(script_.alive, 1);
    EXPECT_EQ(Threads(), 1u);
  }
}

// Whatever a host calls, and wherever in it the memory ends: once, or for good.
TEST_F(EventManagerTest, NoOperationThrowsWhereThereIsNoMemory) {
  Start(PolicyOf(L"full", {L"CPUEvent", L"MemoryEvent"}));
  EventManager& manager = life_->manager;
  const std::wstring long_text(100, L'x');
  const std::wstring full = L"full";
  DeviceContext context;
  const std::function<void()> operations[] = {
      [&] { manager.get_eventmonitor_list(); },
      [&] { manager.get_DeviceId(); },
      [&] { manager.get_LegacyDeviceId(); },
      [&] { manager.get_Telemetry_Scope(); },
      [&] { manager.get_schema_ver(); },
      [&] { manager.get_device_context_id(); },
      [&] { manager.set_schema_ver(long_text); },
      [&] { manager.set_device_context_id(long_text); },
      [&] { manager.set_Telemetry_Scope(long_text); },
      [&] { manager.set_Telemetry_Scope(full); },
      [&] { manager.OnServiceControlHandle(13, 10, nullptr, nullptr); },
      [&] { manager.DecideTVKVer(L"id"); },  // so short that the host needs no memory for it
      [&] { manager.LogDeviceContextData(true, context, true); },
      [&] { manager.OnDeviceContextChanges(); },
      [&] { manager.OnTelemetryScopeChanges(); },
      [&] { manager.InitAndStartEventMonitors(); },
      [&] { manager.Initialize(&life_->device_ids); },
      [&] { manager.Stop(); },
  };
  for (const auto& operation : operations) {
    SCOPED_TRACE(&operation - operations);
    for (const std::size_t refused : {std::size_t{1}, std::numeric_limits<std::size_t>::max()}) {
      bool reached = true;
      for (std::size_t granted = 0; reached; ++granted) {
        BeginMemoryShortage(granted, refused);
        try {
          operation();
        } catch (...) {
          EndMemoryShortage();
          FAIL() << "an exception behind " << granted << " allocations";
        }
        reached = EndMemoryShortage();
      }
    }
  }
  life_->manager.Stop();
  EXPECT_EQ(script_.running, 0);
}

}  // namespace

}  // namespace TVK
