#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "client/text/string.h"
#include "platform/local.h"
#include "testing/manager_world.h"

namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr wchar_t kChangesEntry[] = L"EventManager::OnTelemetryScopeChanges : Entry";

class NotificationsTest : public testing::Test {
 protected:
  NotificationsTest() { world_.config.SetPolicy(PolicyOf(L"full", {L"CPUEvent", L"StorageEvent"})); }

  MonitorWorld world_;
  MonitorScript script_;
  const DatasetTable table_ = ScriptedDatasets(script_);
};

TEST_F(NotificationsTest, OnlyPolicyNewsIsActedOn) {
  struct Row {
    int topic;
    int state;
    bool kvq;
    std::size_t received;
    std::size_t scope_changes;
    std::size_t tvk_changes;
  };
  ManagerLife life(world_, table_);
  life.Start();
  for (const Row& row : {Row{4, 14, true, 0, 0, 0}, Row{5, 14, false, 1, 0, 0}, Row{4, 15, false, 1, 0, 0},
                         Row{4, 14, false, 1, 1, 0}, Row{4, 18, false, 1, 0, 1}}) {
    SCOPED_TRACE(row.topic * 100 + row.state);
    world_.runtime.Settle();
    world_.logs.Clear();
    script_.TakeNotes();
    life.bus.Publish(TVKNotificationData(row.topic, row.state, L"no payload", row.kvq));
    world_.runtime.Settle();
    EXPECT_EQ(world_.logs.Count(L"EventManager::OnNotification Recieved internal notification"), row.received);
    EXPECT_EQ(world_.logs.Count(kChangesEntry), row.scope_changes);
    EXPECT_EQ(world_.logs.Count(L"EventManager::OnTvkPolicyChanges Enter:"), row.tvk_changes);
    EXPECT_EQ(script_.Count(L"restart CPUEvent"), 0u) << "the scope is the same";
    EXPECT_EQ(script_.Count(L"settings CPUEvent"), row.scope_changes);
  }
}

TEST_F(NotificationsTest, ChangesThatComeWhileOneIsHandledAreHandledTogether) {
  ManagerLife life(world_, table_);
  life.Start();
  world_.runtime.Settle();
  world_.logs.Clear();
  const auto gate = world_.runtime.MakeEvent(platform::EventReset::kManual);
  script_.HoldStop(L"CPUEvent", gate.get());
  life.Change(PolicyOf(L"full", {L"MemoryEvent"}));
  world_.runtime.Settle();
  for (const wchar_t* scope : {L"basic", L"none", L"enhance"}) {
    life.Change(PolicyOf(scope, {L"BatteryEvent"}));
    world_.runtime.Settle();
  }
  EXPECT_EQ(world_.logs.Count(kChangesEntry), 1u);
  EXPECT_EQ(world_.logs.Count(L"EventManager OnNotification ReleaseSemphore error:298"), 2u);
  EXPECT_TRUE(world_.logs.Has(L"EventManager OnNotification found telemetry_scope changes none-->enhance"));
  gate->Set();
  world_.runtime.Settle();
  EXPECT_EQ(world_.logs.Count(kChangesEntry), 2u);
  EXPECT_THAT(life.Listed(), ElementsAre(L"DeviceStatus", L"SystemPowerEvent", L"NetworkEvent", L"BatteryEvent"));
  EXPECT_EQ(script_.running, 4);
}

TEST_F(NotificationsTest, ABlockedMonitorDoesNotKeepTheOthersRunning) {
  world_.config.SetPolicy(PolicyOf(L"full", {L"CPUEvent", L"MemoryEvent", L"BatteryEvent", L"StorageEvent"}));
  ManagerLife life(world_, table_);
  life.Start();
  world_.runtime.Settle();
  const auto gate = world_.runtime.MakeEvent(platform::EventReset::kManual);
  script_.HoldStop(L"CPUEvent", gate.get());
  life.Change(PolicyOf(L"none", {L"CPUEvent", L"MemoryEvent", L"BatteryEvent", L"StorageEvent"}));
  world_.runtime.Settle();
  EXPECT_EQ(world_.logs.Count(L"EventManager StopAndRemoveFromList"), 2u) << "memory and battery";
  EXPECT_EQ(script_.running, 4);
  EXPECT_EQ(life.manager.OnServiceControlHandle(13, 0, nullptr, nullptr), 0u) << "no lock is held meanwhile";
  EXPECT_EQ(script_.Count(L"control 13,0,0,0 CPUEvent"), 0u);
  world_.runtime.AdvanceBy(1s);
  EXPECT_TRUE(world_.logs.Has(L"CPUEvent is still busy; the others go on"));

  // Later policies hold for all others, and for the busy one when it is done.
  life.Change(PolicyOf(L"full", {L"CPUEvent", L"MemoryEvent"}));
  world_.runtime.Settle();
  EXPECT_THAT(life.Listed(), ElementsAre(L"DeviceStatus", L"SystemPowerEvent", L"NetworkEvent", L"MemoryEvent"));
  life.Change(PolicyOf(L"none", {L"CPUEvent", L"MemoryEvent"}));
  world_.runtime.Settle();
  EXPECT_THAT(life.Listed(), ElementsAre(L"DeviceStatus", L"SystemPowerEvent", L"NetworkEvent"));
  life.Change(PolicyOf(L"full", {L"CPUEvent"}));
  world_.runtime.Settle();
  script_.HoldStop(L"CPUEvent", nullptr);
  gate->Set();
  world_.runtime.Settle();
  EXPECT_THAT(life.Listed(), ElementsAre(L"DeviceStatus", L"SystemPowerEvent", L"NetworkEvent", L"CPUEvent"));
}

TEST_F(NotificationsTest, OnlyMonitorsThatMayRunHearOfANewDeviceContext) {
  world_.config.SetPolicy(PolicyOf(L"full", {L"CPUEvent", L"MemoryEvent"}));
  ManagerLife life(world_, table_);
  life.Start();
  world_.runtime.Settle();
  script_.TakeNotes();
  // The policy is there, its notification is not yet.
  world_.config.SetPolicy(PolicyOf(L"full", {L"MemoryEvent"}));
  life.manager.OnDeviceContextChanges();
  EXPECT_THAT(script_.TakeNotes(),
              ElementsAre(L"context anew TVKEvent", L"context anew DeviceStatus", L"context anew SystemPowerEvent",
                          L"context anew NetworkEvent", L"context anew MemoryEvent"));
}

TEST_F(NotificationsTest, TheUserAgentFollowsTheDisplayDataset) {
  const auto policy_event =
      world_.runtime.MakeNamedEvent(L"Global\\TvkUserAgentTelemetryPolicyChangeEvent", platform::EventReset::kAuto,
                                    false, platform::EventAccess::kSessionUsers);
  world_.config.SetPolicy(PolicyOf(L"basic", {L"DisplayEvent"}));
  ManagerLife life(world_, table_);
  life.Start();
  EXPECT_EQ(life.user_process.starts, 0);
  life.Change(PolicyOf(L"enhance", {L"DisplayEvent"}));
  world_.runtime.Settle();
  EXPECT_EQ(life.user_process.starts, 1);
  EXPECT_TRUE(life.user_process.enabled);
  EXPECT_EQ(world_.runtime.Wait(*policy_event.event, 0ms), 0u) << "the agent is told";
  life.Change(PolicyOf(L"full", {L"DisplayEvent"}));
  world_.runtime.Settle();
  EXPECT_EQ(life.user_process.starts, 1);
  EXPECT_EQ(life.user_process.stops, 0);
  life.user_process.runs = false;
  life.Change(PolicyOf(L"enhance", {L"DisplayEvent"}));
  world_.runtime.Settle();
  EXPECT_EQ(life.user_process.starts, 2) << "it had ended by itself";
  life.Change(PolicyOf(L"full", {L"CPUEvent"}));
  world_.runtime.Settle();
  EXPECT_EQ(life.user_process.stops, 1);
  EXPECT_EQ(life.user_process.last_reason, 1);
  EXPECT_FALSE(life.user_process.enabled);
}

TEST_F(NotificationsTest, ANewDeviceContextIsWrittenWhenAFactOfItChanged) {
  struct Row {
    const char* what;
    std::function<void(MonitorWorld&, ManagerLife&)> change;
    bool renewed;
  };
  ManagerLife life(world_, table_);
  life.Start();
  EXPECT_TRUE(life.manager.get_FirstInvocation());
  world_.runtime.Settle();
  const auto region = [](MonitorWorld&, ManagerLife& one) {
    one.service.machine_information.ReInitialize(true);
    one.region_changed->Set();
  };
  const Row rows[] = {
      {"nothing", region, false},
      {"only times",
       [](MonitorWorld& world, ManagerLife& one) {
         world.runtime.AdvanceBy(24h);
         one.service.machine_information.ReInitialize(true);
         one.region_changed->Set();
       },
       false},
      {"language",
       [](MonitorWorld& world, ManagerLife& one) {
         world.machine.Change([](auto& state) { state.region = {"DE", "de-DE", "UTC"}; });
         one.service.machine_information.ReInitialize(true);
         one.region_changed->Set();
       },
       true},
      {"the same again", region, false},
      {"the device path",
       [](MonitorWorld& world, ManagerLife& one) {
         world.config.SetTvkPolicy(TvkPolicy{L"/a", L"b"});
         one.bus.Publish(TVKNotificationData(4, 18, MakeTvkPolicyPayload(L"/a", L"b", true)));
       },
       true},
      {"the schema",
       [](MonitorWorld&, ManagerLife& one) {
         one.manager.set_schema_ver(L"2.1");
         one.service.machine_information.ReInitialize(true);
         one.region_changed->Set();
       },
       true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    script_.TakeNotes();
    const std::wstring before = life.manager.get_device_context_id();
    const std::size_t written = life.service.DeviceContexts().size();
    row.change(world_, life);
    world_.runtime.Settle();
    EXPECT_EQ(life.manager.get_device_context_id() != before, row.renewed);
    EXPECT_EQ(life.service.DeviceContexts().size(), written + (row.renewed ? 1 : 0));
    for (const wchar_t* note : {L"context anew DeviceStatus", L"context anew CPUEvent"})
      EXPECT_EQ(script_.Count(note), row.renewed ? 1u : 0u);
    EXPECT_EQ(script_.Count(L"device init CPUEvent"), row.what == std::string("the device path") ? 1u : 0u);
  }
  EXPECT_FALSE(life.manager.IsDevicePathChange()) << "it was told";
}

TEST_F(NotificationsTest, TheDeviceContextOutlivesARestart) {
  std::wstring id;
  {
    ManagerLife life(world_, table_);
    life.Start();
    id = life.manager.get_device_context_id();
    DeviceContext context;
    life.manager.set_schema_ver(L"2.1");
    life.manager.LogDeviceContextData(false, context, false);
    EXPECT_NE(context.device_context_id(), id) << "in force, though not stored";
    EXPECT_EQ(life.manager.get_device_context_id(), context.device_context_id());
    EXPECT_EQ(life.service.DeviceContexts().size(), 1u);
  }
  ManagerLife life(world_, table_);
  life.Start();
  EXPECT_EQ(life.manager.get_device_context_id(), id);
  EXPECT_FALSE(life.manager.get_FirstInvocation());
  EXPECT_THAT(life.service.DeviceContexts(), IsEmpty());
}

TEST_F(NotificationsTest, TheVersionOfTheLastDeviceInitIsTold) {
  ManagerLife life(world_, table_);
  life.Start();
  const std::wstring cpu = IdOf(L"CPUEvent");
  EXPECT_EQ(life.manager.DecideTVKVer(cpu), 2) << "there is none";
  const auto write = [&](const wchar_t* version, const std::wstring& dataset) {
    DeviceContext context;
    context.set_device_context_id(std::wstring(L"OF ") + version);
    context.tvk_info().set_tvk_version(version);
    EXPECT_EQ(life.service.store.LogDeviceContext(context), 0);
    ItemEvent event;
    event.set_dataset_id(dataset);
    event.set_item_id(EventMonitorBase::DeviceInitItemId);
    event.set_device_context_id(context.device_context_id());
    EXPECT_EQ(life.service.store.LogItemEvent(event), 0);
  };
  write(L"0.0.0", cpu);
  EXPECT_EQ(life.manager.DecideTVKVer(cpu), 1);
  write(life.service.tvk_info.GetVersion().c_str(), IdOf(L"MemoryEvent"));
  EXPECT_EQ(life.manager.DecideTVKVer(cpu), 1) << "another dataset's does not count";
  EXPECT_EQ(life.manager.DecideTVKVer(IdOf(L"MemoryEvent")), 0);
  EXPECT_EQ(life.manager.DecideTVKVer(L""), 0) << "of any dataset";
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
    if (i % 11 == 0) life.bus.Publish(TVKNotificationData(4, 18, L"{}"));
    if (pause > 0ms) runtime.Wait(*end, pause);
  }
  life.Change(PolicyOf(L"enhance", {L"CPUEvent", L"MemoryEvent"}));
  end->Set();
  runtime.Join(controls);
}

TEST_F(NotificationsTest, AThousandFlipsInAMinuteEndInTheLastPolicy) {
  ManagerLife life(world_, table_);
  life.Start();
  FlipPolicies(world_.runtime, life, 1000, 60ms);
  world_.runtime.AdvanceBy(1s);
  EXPECT_THAT(life.Listed(),
              UnorderedElementsAre(L"DeviceStatus", L"SystemPowerEvent", L"NetworkEvent", L"CPUEvent", L"MemoryEvent"));
  EXPECT_EQ(script_.running, 5);
  EXPECT_EQ(script_.alive, 6);
  EXPECT_EQ(world_.runtime.Threads().size(), 7u) << "five monitors, bus and notifications";
  EXPECT_EQ(life.user_process.starts, life.user_process.stops);
  const std::vector<std::wstring> notes = script_.TakeNotes();
  EXPECT_EQ(std::ranges::count(notes, L"start(test) CPUEvent"), std::ranges::count(notes, L"stop CPUEvent") + 1);
  life.manager.Stop();
  EXPECT_EQ(script_.alive, 1);
  EXPECT_EQ(world_.runtime.Threads().size(), 1u);
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
