#include "framework/dataset_monitor.h"

#include <gtest/gtest.h>

#include "client/text/string.h"
#include "framework/scheduled_monitor.h"
#include "testing/monitor_world.h"

namespace TVK {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only

constexpr DatasetRow kRow{0,
                          L"11111111-0000-4000-8000-000000000001",
                          L"DriveEvent",
                          L"none,basic,full",
                          DatasetRule::kByScope,
                          L"DriveEventMonitor",
                          L"tvk/drive",
                          L"device-activity",
                          L"tvk/Drive"};
constexpr DatasetRow kUseRow = WithScopes(kRow, L"basic,full");
constexpr const DatasetRow& kOther = DatasetRowNamed(L"StorageEvent");
constexpr wchar_t kPerDay[] = L"ReadPerDay";
const std::map<std::wstring, std::wstring> kItems = {{kPerDay, L"22222222-0000-4000-8000-000000000002"},
                                                     {L"ReadPerSession", L"22222222-0000-4000-8000-000000000003"}};
constexpr MonitorLines kLines = {
    .context_decision = L"Drives: new %s, on change %s",
    .context_failure = L"Drives: context: error %d",
    .init_failure = L"Drives: init",
    .item_failure = L"Drives: %s: error %d",
    .no_context = L"%s: %s is not in DriveContextIdMap!",
};

using Drives = std::vector<DescribedDevice>;

/// A monitor of several drives, which waits for another dataset's context, reports once a session and once a day, and
/// whose stop event has a name. What it finds is the test's.
class DriveMonitor final : public ScheduledMonitor {
 public:
  explicit DriveMonitor(const MonitorServices& services, const wchar_t* reported = kPerDay)
      : ScheduledMonitor(services, {kRow, kItems, kLines, &kUseRow},
                         ReportRule{.item = reported, .report = [this] { Report(kPerDay); }}) {}

  void StartMonitor(std::wstring /*name*/) override {
    if (!MakeStopEvent(L"DriveMonitor", L"%s: error %d", L"DriveEvent_StopEvent")) return;
    found_other = WaitForContextsOf(kOther, 60'000);
    if (stopping()) return;
    LogDatasetContext(false);
    InitialiseDevice();
    Report(L"ReadPerSession");
    ReportEvery(86'400'000);
  }
  using DatasetMonitor::InitialiseDevice;
  using DatasetMonitor::WriteItem;
  using DatasetMonitor::WriteItemOfUse;
  using EventMonitorBase::SetDevicePathChanged;
  using ScheduledMonitor::StartThread;
  using ScheduledMonitor::WatchSeconds;

  std::optional<Drives> drives = Drives{{L"A", {{L"Model", L"1"}}}, {L"B", {{L"Model", L"2"}}}};
  std::optional<bool> found_other;
  std::vector<std::wstring> changed;
  std::function<void()> while_described = [] {};

 protected:
  std::optional<Drives> Describe() override {
    while_described();
    return drives;
  }
  void OnDescriptionChanged(const DescribedDevice& device, const ItemData& before) override {
    changed.push_back(device.key + L" was " + before.begin()->second);
  }

 private:
  void Report(const wchar_t* item) {
    for (const DescribedDevice& drive : *drives)
      WriteItem(item, {{L"Health", L"good"}}, drive.key);
  }
};

class DatasetMonitorTest : public testing::Test {
 protected:
  DatasetMonitorTest() { other_->Set(); }

  /// What the records of this life say, in the order of writing: the items with the place of their context.
  std::vector<std::wstring> Items() const {
    const std::vector<DatasetContext> contexts = life_->DatasetContexts();
    std::vector<std::wstring> items;
    for (const ItemEvent& item : life_->Items()) {
      const auto context = std::ranges::find(contexts, item.dataset_context_id(), &DatasetContext::dataset_context_id);
      items.push_back(item.item_name() + L" " + std::to_wstring(context - contexts.begin()));
    }
    return items;
  }
  DriveMonitor& Start(std::optional<Drives> found = std::nullopt) {
    auto monitor = std::make_unique<DriveMonitor>(life_->services());
    if (found) monitor->drives = std::move(found);
    DriveMonitor& drives = *monitor;
    monitor_.emplace(world_.runtime, std::move(monitor));
    world_.runtime.Settle();
    return drives;
  }

  using Texts = std::vector<std::wstring>;

  MonitorWorld world_;
  std::unique_ptr<platform::Event> other_ =
      world_.runtime
          .MakeNamedEvent(L"StorageEvent_LogDatasetContext", platform::EventReset::kManual, false,
                          platform::EventAccess::kServiceOnly)
          .event;
  std::optional<ServiceLife> life_{std::in_place, world_};
  std::optional<RunningMonitor> monitor_;
};

TEST_F(DatasetMonitorTest, EachDeviceHasItsOwnContextAndItems) {
  life_->manager.first_invocation = true;
  DriveMonitor& monitor = Start();
  EXPECT_EQ(Items(), (Texts{L"DeviceInit 0", L"DeviceInit 1", L"ReadPerSession 0", L"ReadPerSession 1"}));
  world_.runtime.AdvanceBy(24h);
  EXPECT_EQ(life_->Items(kPerDay).size(), 2u) << "a day after the device's initialisation";
  const DatasetContext context = life_->DatasetContexts().at(1);
  EXPECT_EQ(context.item_data(), (ItemData{{L"Model", L"2"}}));
  EXPECT_EQ(context.source() + context.dataset_type(), L"tvk/drivedevice-activity");
  EXPECT_EQ(context.device_context_id() + context.schema_ver(), L"DEVICE-CONTEXT2.0");
  EXPECT_EQ(context.source_component(), String::ToUpper(life_->services().tvk_info.GetId()));
  const ItemEvent item = life_->Items().back();
  EXPECT_EQ(item.source(), L"tvk/Drive");
  EXPECT_EQ(item.item_id(), kItems.at(kPerDay));
  EXPECT_EQ(item.item_data(), (ItemData{{L"Health", L"good"}}));
  EXPECT_EQ(item.dataset_name() + item.dataset_id(), std::wstring(kRow.name) + std::wstring(kRow.id));
  EXPECT_EQ(item.device_context_id() + item.schema_ver() + item.source_component(),
            context.device_context_id() + context.schema_ver() + context.source_component());
  life_->manager.device_context_id = L"ANOTHER";
  monitor.InitialiseDevice();  // before the monitor has heard of it
  monitor.OnDeviceContextChanges(true);
  monitor.InitialiseDevice();
  monitor.WriteItem(kPerDay, {}, L"A");
  const std::vector<DatasetContext> contexts = life_->DatasetContexts();
  EXPECT_EQ(life_->Items(L"DeviceInit").size(), 4u) << "once for a device context";
  for (const ItemEvent& written : life_->Items()) {
    const auto its = std::ranges::find(contexts, written.dataset_context_id(), &DatasetContext::dataset_context_id);
    EXPECT_EQ(written.device_context_id(), its->device_context_id()) << "one device context on both";
  }
  monitor.drives->push_back({L"C", {{L"Model", L"3"}}});
  monitor.LogDatasetContext(false);
  monitor.InitialiseDevice();
  EXPECT_EQ(life_->Items(L"DeviceInit").size(), 5u) << "the one that came later alone";
}

TEST_F(DatasetMonitorTest, ADeviceThatAKillLeftWithoutItsInitialisationGetsItAtTheNextStart) {
  life_->manager.first_invocation = true;
  Start();
  const auto inits = [&] { return life_->Items(L"DeviceInit").size(); };
  EXPECT_EQ(inits(), 2u) << "as if the kill had come before that of C";
  for (const std::size_t due : {1u, 0u}) {
    monitor_.reset();
    const Drives drives = {{L"A", {{L"Model", L"1"}}}, {L"B", {{L"Model", L"2"}}}, {L"C", {{L"Model", L"3"}}}};
    life_.emplace(world_);
    Start(drives);
    EXPECT_EQ(inits(), due) << "by this client, for this path";
  }
}

TEST_F(DatasetMonitorTest, WhatTheSystemRefusedIsTold) {
  std::vector<Shortage> told;
  MonitorServices services = life_->services();
  services.on_shortage = [&](std::wstring_view dataset_id, Shortage shortage) {
    EXPECT_EQ(dataset_id, kRow.id);
    told.push_back(shortage);
  };
  auto own = std::make_unique<DriveMonitor>(services);
  DriveMonitor& monitor = *own;
  monitor.while_described = [&] { world_.runtime.RefuseThreads(true); };
  const RunningMonitor running(world_.runtime, std::move(own));
  world_.runtime.AdvanceBy(61s);
  EXPECT_EQ(told, std::vector{Shortage::kSettings}) << "the report";
  EXPECT_FALSE(monitor.NextReport());
  monitor.ReadAndUpdateDatasetSettings();
  EXPECT_EQ(told, (std::vector{Shortage::kSettings, Shortage::kSettings}));
  world_.runtime.RefuseThreads(false);
  monitor.ReadAndUpdateDatasetSettings();
  world_.runtime.Settle();
  EXPECT_TRUE(monitor.NextReport());
  monitor.ReadAndUpdateDatasetSettings();
  EXPECT_EQ(told.size(), 2u);

  world_.runtime.RefuseThreads(true);
  monitor.StartThread("tvk-drive", [] {});
  monitor.WatchSeconds("drives", [] { return nullptr; });
  EXPECT_EQ(told, (std::vector{Shortage::kSettings, Shortage::kSettings, Shortage::kStart, Shortage::kStart}));
  world_.runtime.RefuseThreads(false);
}

TEST_F(DatasetMonitorTest, MistakesOfAMonitorEndInAMessage) {
  DriveMonitor& monitor = Start();
  monitor.StartThread("tvk-drive", [] { throw std::runtime_error("no such drive"); });
  world_.runtime.Settle();
  EXPECT_TRUE(world_.logs.Has(L"tvk-drive failed: no such drive"));
  try {
    const DriveMonitor other(life_->services(), L"ReadPerYear");
    FAIL();
  } catch (const std::invalid_argument& refusal) {
    EXPECT_STREQ(refusal.what(), "DriveEvent: there is no item \"ReadPerYear\" to report");
  }
}

TEST_F(DatasetMonitorTest, AContextStandsUntilItSaysAnythingElse) {
  DriveMonitor& monitor = Start();
  struct Row {
    Drives drives;
    bool anew;
    std::size_t written;
    Texts changed;
  };
  const DescribedDevice a = {L"A", {{L"Model", L"1"}}};
  for (const Row& row : {
           Row{{a, {L"B", {{L"Model", L"2"}}}}, false, 0, {}},
           Row{{a, {L"B", {{L"Model", L"3"}}}}, false, 1, {L"B was 2"}},
           Row{{a, {L"B", {{L"Model", L"3"}, {L"Size", L"1"}}}}, false, 1, {L"B was 3"}},
           Row{{a, {L"B", {{L"Model", L"3"}}}}, false, 1, {L"B was 3"}}, Row{{a}, true, 1, {}},
           Row{{a, {L"B", {{L"Model", L"3"}}}}, false, 0, {}},  // back again
       }) {
    const std::size_t before = life_->DatasetContexts().size();
    monitor.drives = row.drives;
    monitor.changed.clear();
    monitor.LogDatasetContext(row.anew);
    EXPECT_EQ(life_->DatasetContexts().size() - before, row.written);
    EXPECT_EQ(monitor.changed, row.changed);
  }
  monitor.drives = Drives{a};
  monitor.LogDatasetContext(false);
  EXPECT_EQ(monitor.WriteItem(kPerDay, {}, L"B"), -1);
  EXPECT_TRUE(world_.logs.Has(L"ReadPerDay: B is not in DriveContextIdMap!"));
  EXPECT_EQ(monitor.WriteItem(L"ReadPerYear", {}, L"A"), -1);
  EXPECT_TRUE(world_.logs.Has(L"there is no item \"ReadPerYear\""));
  monitor.drives.reset();
  EXPECT_EQ(life_->Items(kPerDay).size(), 0u);
  monitor.OnDeviceContextChanges(true);
  EXPECT_EQ(life_->Items(L"DeviceInit").size(), 1u) << "facts that are not known now change nothing";
}

TEST_F(DatasetMonitorTest, AContextOfAnotherDeviceContextIsNotTakenOver) {
  DriveMonitor& monitor = Start();
  monitor.drives = Drives{{L"", {{L"Model", L"1"}}}};
  for (const auto& [device_context, contexts] :
       {std::pair(L"DEVICE-CONTEXT", 3u), {L"ANOTHER", 4u}, {L"ANOTHER", 4u}}) {
    life_->manager.device_context_id = device_context;
    monitor.LogDatasetContext(false);
    EXPECT_EQ(life_->DatasetContexts().size(), contexts);
  }
  EXPECT_EQ(life_->DatasetContexts().back().device_context_id(), L"ANOTHER");
}

TEST_F(DatasetMonitorTest, TheContextEventIsClearWhileContextsAreLogged) {
  DriveMonitor& monitor = Start();
  platform::Event& described = *monitor.getDatasetContextEventHandle();
  const auto is_set = [&] { return world_.runtime.Wait(described, 0s) == 0u; };
  EXPECT_TRUE(is_set());
  bool set_meanwhile = false;
  life_->store.SetRecordListener([&](auto...) { set_meanwhile |= is_set(); });
  monitor.LogDatasetContext(true);
  EXPECT_FALSE(set_meanwhile);
  EXPECT_TRUE(is_set());
  monitor_->Stop();
  EXPECT_FALSE(is_set());
}

TEST_F(DatasetMonitorTest, TheStartWaitsForTheOtherContextAMinuteAndForTheStop) {
  for (const auto& [passes, found] : {std::pair(0s, true), {61s, false}, {30s, false}}) {
    if (!found) other_->Reset();
    DriveMonitor& monitor = Start();
    world_.runtime.AdvanceBy(passes);
    EXPECT_EQ(monitor.found_other, passes == 30s ? std::nullopt : std::optional(found));
    const std::size_t contexts = life_->DatasetContexts().size();
    monitor_->Stop();
    EXPECT_EQ(life_->DatasetContexts().size(), contexts) << "a start that the stop met writes nothing";
    EXPECT_EQ(contexts > 0, true);
    EXPECT_TRUE(world_.runtime.Threads().empty());
    monitor_.reset();
  }
}

TEST_F(DatasetMonitorTest, NothingIsWrittenWithoutConsentAndTheContextComesFirstAfterwards) {
  life_->consent.given = false;
  life_->manager.first_invocation = true;
  DriveMonitor& monitor = Start();
  EXPECT_EQ(monitor.WriteItem(kPerDay, {}, L"A"), DatasetMonitor::kWithheld);
  EXPECT_TRUE(life_->Items().empty() && life_->DatasetContexts().empty());
  life_->consent.given = true;
  EXPECT_EQ(monitor.WriteItem(kPerDay, {}, L"B"), 0);
  EXPECT_EQ(Items(), (Texts{L"DeviceInit 0", L"DeviceInit 1", L"ReadPerDay 1"})) << "nothing that was due is left out";
  life_->consent.given = false;
  EXPECT_EQ(monitor.WriteItem(kPerDay, {}, L"B"), DatasetMonitor::kWithheld);
  monitor.OnDeviceContextChanges(true);
  EXPECT_EQ(life_->Items().size(), 3u);
  EXPECT_EQ(life_->DatasetContexts().size(), 2u);
  life_->consent.given = true;
  EXPECT_EQ(monitor.WriteItem(kPerDay, {}, L"A"), 0);
  EXPECT_EQ(Items().back(), L"ReadPerDay 2") << "the context that was withheld, anew";
  life_->consent.given = false;
  monitor.LogDatasetContext(false);
  life_->consent.given = true;
  monitor.while_described = [&] { life_->consent.given = false; };
  EXPECT_EQ(monitor.WriteItem(kPerDay, {}, L"A"), DatasetMonitor::kWithheld)
      << "withdrawn while the devices were looked at";
  EXPECT_EQ(life_->Items().size(), 4u);
  EXPECT_EQ(life_->DatasetContexts().size(), 4u);
}

TEST_F(DatasetMonitorTest, WhatTellsOfUseIsWrittenInItsScopesOnly) {
  DriveMonitor& monitor = Start();
  const std::size_t items = life_->Items().size();
  monitor.drives = Drives{{L"A", {{L"Model", L"1"}}}, {L"Stick", {{L"Model", L"3"}}, true}};
  life_->consent.scope = L"none";
  monitor.LogDatasetContext(true);
  EXPECT_EQ(life_->DatasetContexts().size(), 3u) << "A alone, anew";
  EXPECT_EQ(monitor.WriteItemOfUse(kPerDay, {}, L"A"), DatasetMonitor::kWithheld);
  EXPECT_EQ(life_->Items().size(), items);
  EXPECT_EQ(monitor.WriteItem(kPerDay, {}, L"A"), 0) << "the stick keeps nothing waiting";
  EXPECT_EQ(monitor.WriteItem(kPerDay, {{L"Code", L"1"}}, L"A", {}, {{L"Text", L"x"}}), 0);
  EXPECT_EQ(life_->Items().back().item_data(), (ItemData{{L"Code", L"1"}})) << "what is not of use stays";
  life_->consent.scope = nullptr;
  EXPECT_EQ(monitor.WriteItem(kPerDay, {{L"Code", L"1"}}, L"A", {}, {{L"Text", L"x"}}), 0);
  EXPECT_EQ(life_->Items().back().item_data(), (ItemData{{L"Code", L"1"}, {L"Text", L"x"}}));
  monitor.LogDatasetContext(false);
  EXPECT_EQ(monitor.WriteItem(kPerDay, {}, L"Stick"), 0);
  EXPECT_EQ(Items().back(), L"ReadPerDay 3");
  monitor.LogDatasetContext(false);
  EXPECT_EQ(monitor.WriteItemOfUse(kPerDay, {}, L"A"), 0);
  EXPECT_EQ(life_->Items().size(), items + 5);
  life_->consent.scope = L"none";
  EXPECT_EQ(monitor.WriteItem(kPerDay, {}, L"Stick"), DatasetMonitor::kWithheld) << "described before the scope shrank";
  EXPECT_EQ(life_->Items().size(), items + 5);
}

TEST_F(DatasetMonitorTest, AStoreThatRefusesIsToldAndTheIdHolds) {
  DriveMonitor& monitor = Start();
  const std::wstring too_long(2u << 20, L'x');  // above what a record may hold
  monitor.drives = Drives{{L"A", {{L"Model", too_long}}}};
  monitor.LogDatasetContext(false);
  EXPECT_EQ(world_.logs.Count(L"Drives: context: error 18"), 1u);
  EXPECT_EQ(monitor.WriteItem(kPerDay, {{L"Health", too_long}}, L"A"), 18);
  EXPECT_EQ(world_.logs.Count(L"Drives: ReadPerDay: error 18"), 1u);
  monitor.WriteItem(kPerDay, {}, L"B");
  EXPECT_EQ(world_.logs.Count(L"is not in DriveContextIdMap!"), 1u) << "A has an id though its context failed";
}

}  // namespace

}  // namespace TVK
