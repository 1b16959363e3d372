#include <algorithm>
#include <functional>

#include "client/records/record_fields.h"
#include "client/store/sqlite_database.h"
#include "core/manager_test.h"
#include "platform/local.h"
#include "platform/simulated/simulated_firmware.h"
#include "platform/simulated/simulated_system.h"

namespace TVK {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

constexpr wchar_t kChangesEntry[] = L"EventManager::OnTelemetryScopeChanges : Entry";

class NotificationsTest : public ManagerTest {};

TEST_F(NotificationsTest, OnlyPolicyNewsIsActedOn) {
  Start(PolicyOf(L"full", {L"CPUEvent", L"StorageEvent"}));
  for (const auto& [topic, state, kvq, received, scope_changes, tvk_changes] :
       {std::tuple(4, 14, true, 0u, 0u, 0u), std::tuple(5, 14, false, 1u, 0u, 0u), std::tuple(4, 15, false, 1u, 0u, 0u),
        std::tuple(4, 14, false, 1u, 1u, 0u), std::tuple(4, 18, false, 1u, 0u, 1u)}) {
    SCOPED_TRACE(topic * 100 + state);
    world_.logs.Clear();
    script_.TakeNotes();
    life_->composition.bus().Publish(TVKNotificationData(topic, state, L"no payload", kvq));
    world_.runtime.Settle();
    EXPECT_EQ(world_.logs.Count(L"EventManager::OnNotification Recieved internal notification"), received);
    EXPECT_EQ(world_.logs.Count(kChangesEntry), scope_changes);
    EXPECT_EQ(world_.logs.Count(L"EventManager::OnTvkPolicyChanges Enter:"), tvk_changes);
    EXPECT_EQ(script_.Count(L"restart CPUEvent"), 0u) << "the scope is the same";
    EXPECT_EQ(script_.Count(L"settings CPUEvent"), scope_changes);
  }
}

TEST_F(NotificationsTest, ChangesThatComeWhileOneIsHandledAreHandledTogether) {
  Start(PolicyOf(L"full", {L"CPUEvent", L"StorageEvent"}));
  world_.logs.Clear();
  const auto gate = world_.runtime.MakeEvent(platform::EventReset::kManual);
  script_.gate = {L"CPUEvent", MonitorScript::Place::kStop, gate.get()};
  Change(PolicyOf(L"full", {L"MemoryEvent"}));
  for (const wchar_t* scope : {L"basic", L"none", L"enhance"})
    Change(PolicyOf(scope, {L"BatteryEvent"}));
  EXPECT_EQ(world_.logs.Count(kChangesEntry), 1u);
  EXPECT_EQ(world_.logs.Count(L"EventManager OnNotification ReleaseSemphore error:298"), 2u);
  gate->Set();
  world_.runtime.Settle();
  EXPECT_EQ(world_.logs.Count(kChangesEntry), 2u);
  EXPECT_THAT(life_->Listed(), ElementsAre(L"DeviceStatus", L"SystemPowerEvent", L"NetworkEvent", L"BatteryEvent"));
  EXPECT_EQ(script_.running, 4);
}

TEST_F(NotificationsTest, ABlockedMonitorDoesNotKeepTheOthersRunning) {
  Start(PolicyOf(L"full", {L"CPUEvent", L"MemoryEvent", L"BatteryEvent", L"StorageEvent"}));
  const auto gate = world_.runtime.MakeEvent(platform::EventReset::kManual);
  script_.gate = {L"CPUEvent", MonitorScript::Place::kStop, gate.get()};
  Change(PolicyOf(L"none", {L"CPUEvent", L"MemoryEvent", L"BatteryEvent", L"StorageEvent"}));
  EXPECT_EQ(world_.logs.Count(L"EventManager StopAndRemoveFromList"), 2u) << "memory and battery";
  life_->composition.bus().Publish(TVKNotificationData(4, 18, MakeTvkPolicyPayload(L"/a", L"b", true)));
  world_.runtime.Settle();
  EXPECT_TRUE(life_->manager.IsDevicePathChange()) << "known before it is told";
  EXPECT_EQ(script_.running, 4);
  EXPECT_EQ(life_->manager.OnServiceControlHandle(13, 0, nullptr, nullptr), 0u) << "no lock is held meanwhile";
  EXPECT_EQ(script_.Count(L"control 13,0,0,0 CPUEvent"), 0u);
  world_.runtime.AdvanceBy(1s);
  EXPECT_TRUE(world_.logs.Has(L"CPUEvent is still busy; the others go on"));

  // Later policies hold for all others, and for the busy one when it is done.
  Change(PolicyOf(L"full", {L"CPUEvent", L"MemoryEvent"}));
  EXPECT_THAT(life_->Listed(), ElementsAre(L"DeviceStatus", L"SystemPowerEvent", L"NetworkEvent", L"MemoryEvent"));
  Change(PolicyOf(L"none", {L"CPUEvent", L"MemoryEvent"}));
  EXPECT_THAT(life_->Listed(), ElementsAre(L"DeviceStatus", L"SystemPowerEvent", L"NetworkEvent"));
  Change(PolicyOf(L"full", {L"CPUEvent"}));
  script_.gate = {};
  gate->Set();
  world_.runtime.Settle();
  EXPECT_THAT(life_->Listed(), ElementsAre(L"DeviceStatus", L"SystemPowerEvent", L"NetworkEvent", L"CPUEvent"));
}

TEST_F(NotificationsTest, ACallThatRunsIsWaitedForAndNoneComesAfterTheStop) {
  Start(PolicyOf(L"full", {L"CPUEvent", L"MemoryEvent"}));
  const auto gate = world_.runtime.MakeEvent(platform::EventReset::kManual);
  script_.gate = {L"CPUEvent", MonitorScript::Place::kControl, gate.get()};
  const auto send = [&] { life_->manager.OnServiceControlHandle(13, 0, nullptr, nullptr); };
  std::thread control = world_.runtime.StartThread("control", send);
  world_.runtime.Settle();
  Change(PolicyOf(L"none", {L"CPUEvent", L"MemoryEvent"}));
  EXPECT_EQ(script_.Count(L"stop CPUEvent"), 1u);
  EXPECT_EQ(script_.Count(L"uninitialize CPUEvent"), 0u) << "a call is inside";
  EXPECT_EQ(script_.Count(L"uninitialize MemoryEvent"), 1u) << "nothing more may be written";
  send();
  EXPECT_EQ(script_.Count(L"control 13,0,0,0 CPUEvent"), 1u) << "the first";
  EXPECT_EQ(script_.Count(L"control 13,0,0,0 NetworkEvent"), 2u) << "no lock is held";
  gate->Set();
  world_.runtime.Settle();
  world_.runtime.Join(control);
  EXPECT_EQ(script_.Count(L"uninitialize CPUEvent"), 1u);
  life_->manager.Stop();
  EXPECT_EQ(script_.Count(L"uninitialize, may write NetworkEvent"), 1u);
  EXPECT_EQ(script_.Count(L"control 13,0,0,0 MemoryEvent"), 0u);
}

TEST_F(NotificationsTest, AMonitorForWhichThereWasNoThreadIsStartedWhenThereIsOne) {
  Start(PolicyOf(L"full", {L"MemoryEvent"}));
  for (const bool by_news : {true, false}) {
    world_.runtime.RefuseThreads(true);
    Change(PolicyOf(L"full", {L"MemoryEvent", L"CPUEvent"}));
    EXPECT_EQ(script_.running, 4);
    EXPECT_EQ(WhyOf(L"CPUEvent"), "not started");
    world_.runtime.AdvanceBy(999ms);
    world_.runtime.RefuseThreads(false);
    if (by_news) Change(PolicyOf(L"full", {L"MemoryEvent", L"CPUEvent"}));
    EXPECT_EQ(script_.running, by_news ? 5 : 4);
    world_.runtime.AdvanceBy(1ms);
    EXPECT_EQ(script_.running, 5);
    EXPECT_EQ(WhyOf(L"CPUEvent"), "runs");
    Change(PolicyOf(L"full", {L"MemoryEvent"}));
    world_.runtime.AdvanceBy(10s);
  }
  const auto tries = [&] {
    return world_.logs.Count(L"EventManager RunAndAddToList " + IdOf(L"CPUEvent") + L" failed!");
  };
  const std::size_t before = tries();
  world_.runtime.RefuseThreads(true);
  Change(PolicyOf(L"full", {L"MemoryEvent", L"CPUEvent"}));
  world_.runtime.AdvanceBy(1h);
  EXPECT_EQ(tries(), before + 1 + 9 + 10) << "the pauses grow from a second to five minutes";
  Change(PolicyOf(L"full", {L"MemoryEvent"}));
  world_.runtime.RefuseThreads(false);
  world_.runtime.AdvanceBy(1h);
  EXPECT_EQ(script_.running, 4) << "it may not run any more";
  EXPECT_EQ(tries(), before + 1 + 9 + 10);

  life_.emplace(world_, table_);
  life_->manager.Initialize(&life_->device_ids);
  world_.runtime.RefuseThreads(true);
  life_->manager.InitAndStartEventMonitors();
  world_.runtime.AdvanceBy(10s);
  EXPECT_EQ(script_.running, 0);
  world_.runtime.RefuseThreads(false);
  world_.runtime.AdvanceBy(16s);
  EXPECT_EQ(script_.running, 4) << "those of the start, too";
}

TEST_F(NotificationsTest, AMonitorThatLacksSomethingIsHelpedAsFarAsItNeeds) {
  script_.failure = {L"CPUEvent", MonitorScript::Place::kMake};
  script_.shortage = {L"MemoryEvent", TVK::Shortage::kSettings};
  Start(PolicyOf(L"full", {L"CPUEvent", L"MemoryEvent", L"BatteryEvent"}));
  EXPECT_EQ(WhyOf(L"CPUEvent"), "not started");
  EXPECT_EQ(WhyOf(L"MemoryEvent"), "runs");
  world_.runtime.AdvanceBy(1s);
  EXPECT_EQ(script_.Count(L"settings MemoryEvent"), 1u);
  EXPECT_EQ(script_.Count(L"start(test) MemoryEvent"), 1u) << "what else it does goes on";
  EXPECT_EQ(WhyOf(L"CPUEvent"), "not started");
  script_.failure = {};
  world_.runtime.AdvanceBy(2s);
  EXPECT_EQ(WhyOf(L"CPUEvent"), "runs");
  EXPECT_EQ(script_.Count(L"settings MemoryEvent"), 1u);

  script_.shortage = {L"CPUEvent", TVK::Shortage::kStart};
  Start(PolicyOf(L"full", {L"CPUEvent", L"MemoryEvent", L"BatteryEvent"}));
  script_.TakeNotes();
  EXPECT_EQ(WhyOf(L"CPUEvent"), "not started");
  world_.runtime.AdvanceBy(1s);
  EXPECT_THAT(script_.TakeNotes(),
              ElementsAre(L"stop CPUEvent", L"uninitialize, may write CPUEvent", L"start(test) CPUEvent"));
  EXPECT_EQ(WhyOf(L"CPUEvent"), "not started") << "it lacks it still";
  script_.shortage = {};
  const auto gate = world_.runtime.MakeEvent(platform::EventReset::kManual);
  script_.gate = {L"CPUEvent", MonitorScript::Place::kStop, gate.get()};
  world_.runtime.AdvanceBy(10s);
  EXPECT_EQ(script_.Count(L"start(test) CPUEvent"), 0u) << "its stop takes its time";
  Change(PolicyOf(L"full", {L"CPUEvent", L"MemoryEvent"}));
  EXPECT_EQ(script_.Count(L"stop BatteryEvent"), 1u) << "and holds up nothing";
  script_.gate = {};
  gate->Set();
  world_.runtime.AdvanceBy(10s);
  EXPECT_EQ(script_.Count(L"start(test) CPUEvent"), 1u);
  EXPECT_EQ(WhyOf(L"CPUEvent"), "runs");
  script_.TakeNotes();
  world_.runtime.AdvanceBy(1h);
  EXPECT_TRUE(script_.TakeNotes().empty()) << "nothing lacks";
}

TEST_F(NotificationsTest, OnlyMonitorsThatMayRunHearOfANewDeviceContext) {
  Start(PolicyOf(L"full", {L"CPUEvent", L"MemoryEvent"}));
  script_.TakeNotes();
  // The policy is there, its notification is not yet.
  world_.config.SetPolicy(PolicyOf(L"full", {L"MemoryEvent"}));
  life_->manager.OnDeviceContextChanges();
  EXPECT_THAT(script_.TakeNotes(), ElementsAre(L"context anew DeviceStatus", L"context anew SystemPowerEvent",
                                               L"context anew NetworkEvent", L"context anew MemoryEvent"));
  life_->composition.bus().Publish(TVKNotificationData(4, 18, L"{}"));
  world_.runtime.Settle();
  EXPECT_EQ(script_.Count(L"stop CPUEvent"), 1u) << "nor do others run on when any news comes";
  TelemetryPolicy policy = PolicyOf(L"full", {L"TVKEvent"});
  for (const bool applies : {true, false}) {
    if (!applies) policy.datasets.front().applicability.models = {L"Other"};
    world_.config.SetPolicy(policy);
    script_.TakeNotes();
    life_->manager.OnDeviceContextChanges();
    EXPECT_EQ(script_.Count(L"context anew TVKEvent"), applies ? 1u : 0u) << "it starts with each event anew";
  }
}

TEST_F(NotificationsTest, TheUserAgentFollowsTheDisplayDataset) {
  Start(PolicyOf(L"basic", {L"DisplayEvent"}));
  const auto policy_event = world_.runtime.OpenNamedEvent(L"Global\\TvkUserAgentTelemetryPolicyChangeEvent");
  ASSERT_NE(policy_event.event, nullptr);
  EXPECT_EQ(life_->user_process.starts, 0);
  for (const wchar_t* scope : {L"enhance", L"full"}) {
    Change(PolicyOf(scope, {L"DisplayEvent"}));
    EXPECT_EQ(life_->user_process.starts, 1);
    EXPECT_TRUE(life_->user_process.enabled);
    EXPECT_EQ(world_.runtime.Wait(*policy_event.event, 0ms), 0u) << "the agent is told";
  }
  EXPECT_EQ(life_->user_process.stops, 0);
  life_->user_process.runs = false;
  Change(PolicyOf(L"enhance", {L"DisplayEvent"}));
  EXPECT_EQ(life_->user_process.starts, 2) << "it had ended by itself";
  Change(PolicyOf(L"full", {L"CPUEvent"}));
  EXPECT_EQ(life_->user_process.stops, 1);
  EXPECT_EQ(life_->user_process.last_reason, 1);
  EXPECT_FALSE(life_->user_process.enabled);
}

TEST_F(NotificationsTest, ANewDeviceContextIsWrittenWhenAFactOfItChanged) {
  Start(PolicyOf(L"full", {L"CPUEvent"}));
  EXPECT_TRUE(life_->manager.get_FirstInvocation());
  const auto expect = [&](const char* what, const std::function<void()>& change, unsigned renewed, unsigned inits) {
    SCOPED_TRACE(what);
    script_.TakeNotes();
    const std::wstring before = life_->manager.get_device_context_id();
    const std::size_t written = life_->records.DeviceContexts().size();
    change();
    world_.runtime.Settle();
    EXPECT_EQ(life_->manager.get_device_context_id() != before, renewed == 1);
    EXPECT_EQ(life_->records.DeviceContexts().size(), written + renewed);
    EXPECT_EQ(script_.Count(L"context anew DeviceStatus"), renewed);
    EXPECT_EQ(script_.Count(L"context anew CPUEvent"), renewed);
    EXPECT_EQ(script_.Count(L"device init CPUEvent"), inits);
  };
  const auto read_anew = [&] {
    life_->composition.machine_services().machine_information.ReInitialize(true);
    life_->region_changed->Set();
  };
  world_.runtime.AdvanceBy(24h);
  expect("only times", read_anew, 0, 0);
  world_.machine.region().SetFacts({"DE", "de-DE", "UTC"});
  expect("language", read_anew, 1, 0);
  expect("the same again", read_anew, 0, 0);
  world_.config.SetTvkPolicy(TvkPolicy{L"/a", L"b"});
  const TVKNotificationData path_change(4, 18, MakeTvkPolicyPayload(L"/a", L"b", true));
  expect(
      "the device path, told twice",
      [&] {
        life_->composition.bus().Publish(path_change);
        life_->composition.bus().Publish(path_change);
      },
      1, 1);
  expect(
      "a path that changed and changed back", [&] { life_->composition.bus().Publish(path_change); }, 0, 0);
  life_->manager.set_schema_ver(L"2.1");
  expect(
      "the schema, found with news of no other path",
      [&] { life_->composition.bus().Publish(TVKNotificationData(4, 18, L"{}")); }, 1, 0);
  world_.config.SetTvkPolicy(std::nullopt);
  expect("no client policy: the device belongs where it did", read_anew, 0, 0);
  EXPECT_FALSE(life_->manager.IsDevicePathChange()) << "it was told";
}

TEST_F(NotificationsTest, EveryFactThatIsKnownStandsInTheDeviceContextAndAnotherOneMakesAnotherContext) {
  world_.machine.firmware().Change([](auto& state) { state.facts.product_family = "Note Book"; });
  world_.config.SetTvkPolicy(TvkPolicy{L"/a", L"b"});
  Start(PolicyOf(L"full"));
  const DeviceContext context = life_->records.DeviceContexts().front();
  std::vector<std::string> empty;
  std::vector<std::string> not_compared;
  const auto look = [&](auto part, const auto& fields) {
    for (const auto& field : fields) {
      DeviceContext stored = context;
      auto& record = part(stored);
      if ((record.*field.get)().empty()) empty.emplace_back(field.key);
      (record.*field.set)(L"another");
      EXPECT_EQ(life_->composition.store().LogDeviceContext(stored), 0);
      DeviceContext in_force;
      life_->manager.LogDeviceContextData(false, in_force, false);
      if (in_force == stored) not_compared.emplace_back(field.key);
    }
  };
  look(
      [](DeviceContext & whole) -> auto& { return whole.device_info(); }, kDeviceInfoFields);
  look(
      [](DeviceContext & whole) -> auto& { return whole.region_info(); }, kRegionInfoFields);
  look(
      [](DeviceContext & whole) -> auto& { return whole.tvk_info(); }, kTvkInfoFields);
  look(
      [](DeviceContext & whole) -> auto& { return whole; }, kDeviceContextFields);
  EXPECT_EQ(context.device_info().device_id() + context.device_info().device_id2(), L"DEVICE-IDLEGACY-ID");
  EXPECT_THAT(empty, ElementsAre("device_smbiosversion", "device_extensionkeyvalue", "source"));
  EXPECT_THAT(not_compared,
              ElementsAre("device_info_datetime", "device_extensionkeyvalue", "region_info_datetime", "tvk_datetime",
                          "device_context_id", "device_context_datetime", "source", "source_component"));
}

TEST_F(NotificationsTest, TheDeviceContextOutlivesARestart) {
  Start(PolicyOf(L"full", {L"CPUEvent"}));
  const std::wstring id = life_->manager.get_device_context_id();
  DeviceContext context;
  life_->manager.set_schema_ver(L"2.1");
  life_->manager.LogDeviceContextData(false, context, false);
  EXPECT_NE(context.device_context_id(), id) << "in force, though not stored";
  EXPECT_EQ(life_->manager.get_device_context_id(), context.device_context_id());
  EXPECT_EQ(life_->records.DeviceContexts().size(), 1u);
  Start(PolicyOf(L"full", {L"CPUEvent"}));
  EXPECT_EQ(life_->manager.get_device_context_id(), id);
  life_->manager.set_schema_ver(L"2.1");
  life_->manager.LogDeviceContextData(false, context, false);
  ItemEvent event;
  event.set_dataset_id(IdOf(L"CPUEvent"));
  event.set_device_context_id(context.device_context_id());
  EXPECT_EQ(life_->composition.store().LogItemEvent(event), 0) << "what names it brings it";
  EXPECT_FALSE(life_->manager.get_FirstInvocation());
  EXPECT_THAT(life_->records.DeviceContexts(), SizeIs(1));
}

TEST_F(NotificationsTest, ADeviceContextThatCannotBeReadIsNoFirstStart) {
  Start(PolicyOf(L"full", {L"CPUEvent"}));
  life_.reset();
  Database store;
  ASSERT_EQ(store.Open(world_.folder.path() / kStoreFileName, SQLITE_OPEN_READWRITE), 0);
  ASSERT_EQ(store.Execute("UPDATE record SET json = 'unreadable'"), 0);
  life_.emplace(world_, table_);
  life_->manager.Initialize(&life_->device_ids);
  EXPECT_FALSE(life_->manager.get_FirstInvocation()) << "each dataset would tell a DeviceInit again";
  EXPECT_FALSE(life_->manager.get_device_context_id().empty());
}

TEST_F(NotificationsTest, UntilSomebodyIsLoggedOnTheRegionIsThatOfTheLastContext) {
  world_.machine.region().SetFacts({"DE", "de-DE", "UTC"});
  Start(PolicyOf(L"full", {L"CPUEvent"}));
  const std::wstring id = life_->manager.get_device_context_id();
  const auto look = [&](const platform::RegionFacts& region) {
    world_.machine.region().SetFacts(region);
    life_->composition.machine_services().machine_information.ReInitialize(true);
    life_->region_changed->Set();
    world_.runtime.Settle();
    return life_->manager.get_device_context_id();
  };
  world_.machine.region().SetFacts({"", "", "UTC", false});
  Start(PolicyOf(L"full", {L"CPUEvent"}));
  EXPECT_EQ(life_->manager.get_device_context_id(), id) << "a boot, nobody is there yet";
  EXPECT_EQ(look({"DE", "de-DE", "UTC"}), id);
  EXPECT_EQ(look({"", "", "UTC", false}), id) << "the user has logged off";
  EXPECT_NE(look({"FR", "fr-FR", "UTC"}), id);
  EXPECT_NE(look({"", "", "UTC"}), id) << "a system without a region is another thing";
}

TEST_F(NotificationsTest, TheVersionOfTheLastDeviceInitIsTold) {
  Start(PolicyOf(L"full"));
  const std::wstring cpu = IdOf(L"CPUEvent");
  EXPECT_EQ(life_->manager.DecideTVKVer(cpu), 2) << "there is none";
  const auto write = [&](const std::wstring& version, const std::wstring& dataset) {
    DeviceContext context;
    context.set_device_context_id(L"OF " + version);
    context.tvk_info().set_tvk_version(version);
    EXPECT_EQ(life_->composition.store().LogDeviceContext(context), 0);
    ItemEvent event;
    event.set_dataset_id(dataset);
    event.set_item_id(EventMonitorBase::DeviceInitItemId);
    event.set_device_context_id(context.device_context_id());
    EXPECT_EQ(life_->composition.store().LogItemEvent(event), 0);
  };
  write(L"0.0.0", cpu);
  write(life_->composition.machine_services().tvk_info.GetVersion(), IdOf(L"MemoryEvent"));
  EXPECT_EQ(life_->manager.DecideTVKVer(cpu), 1) << "another dataset's does not count";
  EXPECT_EQ(life_->manager.DecideTVKVer(IdOf(L"MemoryEvent")), 0);
  EXPECT_EQ(life_->manager.DecideTVKVer(L""), 0) << "of any dataset";
  // The service is killed between the new path and the events that it makes due.
  world_.config.SetTvkPolicy(TvkPolicy{L"/a", L"b"});
  Start(PolicyOf(L"full"));
  EXPECT_EQ(life_->manager.DecideTVKVer(IdOf(L"MemoryEvent")), 3);
}

/// Flips the policy `flips` times while another thread sends controls; what must stand at the end is checked by the
/// caller.
void FlipPolicies(platform::Runtime& runtime, ManagerLife& life, int flips, std::chrono::milliseconds pause) {
  const TelemetryPolicy policies[] = {PolicyOf(L"full"), PolicyOf(L"none"), PolicyOf(L"basic", {L"CPUEvent"}),
                                      PolicyOf(L"enhance", {L"MemoryEvent", L"DisplayEvent"})};
  const auto end = runtime.MakeEvent(platform::EventReset::kManual);
  std::thread controls = runtime.StartThread("controls", [&] {
    for (unsigned long control = 0; runtime.Wait(*end, pause) == platform::kWaitTimeout; ++control)
      life.manager.OnServiceControlHandle(control, 0, nullptr, nullptr);
  });
  for (int i = 0; i < flips; ++i) {
    life.Change(policies[i % 4]);
    if (i % 7 == 0) life.region_changed->Set();
    if (i % 11 == 0) life.composition.bus().Publish(TVKNotificationData(4, 18, L"{}"));
    if (pause > 0ms) runtime.Wait(*end, pause);
  }
  life.Change(PolicyOf(L"enhance", {L"CPUEvent", L"MemoryEvent"}));
  end->Set();
  runtime.Join(controls);
}

TEST_F(NotificationsTest, AThousandFlipsInAMinuteEndInTheLastPolicy) {
  Start(PolicyOf(L"full", {L"CPUEvent", L"StorageEvent"}));
  FlipPolicies(world_.runtime, *life_, 1000, 60ms);
  world_.runtime.AdvanceBy(1s);
  EXPECT_THAT(life_->Listed(),
              UnorderedElementsAre(L"DeviceStatus", L"SystemPowerEvent", L"NetworkEvent", L"CPUEvent", L"MemoryEvent"));
  EXPECT_EQ(script_.running, 5);
  EXPECT_EQ(script_.alive, 6);
  EXPECT_EQ(Threads(), 7u) << "five monitors, bus and notifications";
  EXPECT_EQ(life_->user_process.starts, life_->user_process.stops);
  const std::vector<std::wstring> notes = script_.TakeNotes();
  EXPECT_EQ(std::ranges::count(notes, L"start(test) CPUEvent"), std::ranges::count(notes, L"stop CPUEvent") + 1);
  life_->manager.Stop();
  EXPECT_EQ(script_.alive, 1);
  EXPECT_EQ(Threads(), 1u);
}

TEST(ManagerRaceTest, FlipsControlsAndStopMeetWithoutHarm) {
  const LogCapture logs;
  const TempFolder folder;
  const auto runtime = platform::MakeRealRuntime({.named_event_folder = folder.path() / "run"});
  platform::SimulatedMachine machine;
  SettableConfigAgent config;
  MonitorScript script;
  const DatasetTable table = ScriptedDatasets(script);
  for (int round = 0; round < 5; ++round) {
    config.SetPolicy(PolicyOf(L"basic"));
    ManagerLife life(*runtime, machine, config, folder, table);
    life.Start();
    std::thread stopper;
    if (round % 2 == 1) stopper = runtime->StartThread("stopper", [&] { life.manager.Stop(); });
    FlipPolicies(*runtime, life, 40, std::chrono::milliseconds(round % 3));
    if (stopper.joinable()) runtime->Join(stopper);
    life.manager.Stop();
    EXPECT_EQ(script.running, 0);
    EXPECT_EQ(script.alive, 1);
    EXPECT_THAT(life.Listed(), IsEmpty());
  }
}

}  // namespace

}  // namespace TVK
