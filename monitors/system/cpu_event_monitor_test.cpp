#include "monitors/system/cpu_event_monitor.h"

#include <gtest/gtest.h>

#include <deque>

#include "client/text/record_time.h"
#include "client/text/string.h"
#include "testing/monitor_world.h"

namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only

constexpr wchar_t kUsage[] = L"ReadUsagePerInterval";
constexpr wchar_t kPeak[] = L"CPUNearCapacity";
constexpr wchar_t kInterval[] = L"ReadUsageInterval";

class CpuEventMonitorTest : public testing::Test {
 protected:
  CpuEventMonitorTest() {
    world_.config.SetPolicy(MakePolicy(L"full", {{CpuEventMonitor::dataset_id, CpuEventMonitor::dataset_name}}));
    SetSettings({{kInterval, L"1m"}});
  }

  void SetSettings(std::map<std::wstring, std::wstring> settings) {
    world_.config.SetSettings(CpuEventMonitor::dataset_name, std::move(settings));
  }
  void SetLoad(std::optional<std::int32_t> load) {
    world_.machine.Change([&](auto& state) { state.processor_load = [load] { return load; }; });
  }
  std::unique_ptr<CpuEventMonitor> Make(ServiceLife& life) {
    return std::make_unique<CpuEventMonitor>(nullptr, false, life.services(), &info_);
  }
  /// When the items were written, in seconds since `start`.
  static std::vector<std::int64_t> Times(const MonitorWorld& world, const std::vector<ItemEvent>& items,
                                         std::int64_t start) {
    std::vector<std::int64_t> times;
    for (const ItemEvent& item : items)
      times.push_back(TVK::ParseRecordTime(TVK::String::UTF16ToUTF8(item.item_time()), world.runtime.clock()) - start);
    return times;
  }

  MonitorWorld world_;
  CPUInfo info_{world_.machine};
};

using Times64 = std::vector<std::int64_t>;

TEST_F(CpuEventMonitorTest, TheFirstStartDescribesTheProcessorAndTheDevice) {
  ServiceLife life(world_);
  life.manager.version_answer = 2;
  const RunningMonitor monitor(world_.runtime, Make(life));
  world_.runtime.Settle();
  const std::vector<DatasetContext> contexts = life.DatasetContexts();
  ASSERT_EQ(contexts.size(), 1u);
  EXPECT_EQ(contexts[0].item_data(), (ItemData{{L"cpu_name", L"Simulated Processor 4000"},
                                               {L"cpu_addresswidth", L"64"},
                                               {L"cpu_numofcores", L"4"},
                                               {L"cpu_numoflogicalprocessors", L"8"},
                                               {L"cpu_l2cachesize", L"4194304"},
                                               {L"cpu_l3cachesize", L"8388608"}}));
  EXPECT_EQ(contexts[0].dataset_type(), L"device-activity");
  const std::vector<ItemEvent> items = life.Items();
  ASSERT_EQ(items.size(), 1u);
  EXPECT_EQ(items[0].item_name(), L"DeviceInit");
  EXPECT_EQ(items[0].item_id(), EventMonitorBase::DeviceInitItemId);
  EXPECT_EQ(items[0].dataset_context_id(), contexts[0].dataset_context_id());
  EXPECT_EQ(items[0].source(), L"tvk/cpu");
}

TEST(CpuFacts, WhatTheMachineDoesNotTellIsLeftOut) {
  _SYSCPU_INFORMATION facts;
  EXPECT_EQ(CpuEventMonitor::FactsToItemData(facts), ItemData());
  facts.number_of_cores = 1;
  facts.l3_cache_count = 1;
  EXPECT_EQ(CpuEventMonitor::FactsToItemData(facts), (ItemData{{L"cpu_numofcores", L"1"}})) << "of unknown size";
  facts.l2_cache_total = 4096;
  facts.l2_cache_count = 1;
  facts.l3_cache_count = 0;
  EXPECT_EQ(CpuEventMonitor::FactsToItemData(facts),
            (ItemData{{L"cpu_numofcores", L"1"}, {L"cpu_l2cachesize", L"4096"}, {L"cpu_l3cachesize", L"0"}}))
      << "that there is no L3 is known";
}

TEST_F(CpuEventMonitorTest, ARestartKeepsTheRhythmAndInitialisesNothing) {
  const std::int64_t start = world_.runtime.clock().NowSeconds();
  SetSettings({{kInterval, L"10m"}});
  {
    ServiceLife life(world_);
    life.manager.version_answer = 2;
    const RunningMonitor monitor(world_.runtime, Make(life));
    world_.runtime.AdvanceBy(14min);
    EXPECT_EQ(Times(world_, life.Items(kUsage), start), (Times64{600}));
  }
  world_.runtime.AdvanceBy(2min);
  ServiceLife life(world_);
  {
    const RunningMonitor monitor(world_.runtime, Make(life));
    world_.runtime.AdvanceBy(14min);
    EXPECT_EQ(Times(world_, life.Items(kUsage), start), (Times64{1200, 1800})) << "16 of 20 minutes had passed";
    EXPECT_TRUE(life.Items(L"DeviceInit").empty());
  }
  world_.runtime.AdvanceBy(1h);
  const RunningMonitor monitor(world_.runtime, Make(life));
  world_.runtime.Settle();
  EXPECT_EQ(life.Items(kUsage).size(), 3u) << "overdue: at once";
}

TEST_F(CpuEventMonitorTest, UsageIsCappedAndAFailingSampleIsZero) {
  SetSettings({{kInterval, L"1m"}, {L"CPUPeakThreshold", L"100"}});
  ServiceLife life(world_);
  const RunningMonitor monitor(world_.runtime, Make(life));
  world_.runtime.AdvanceBy(59s);
  std::vector<std::wstring> reported;
  for (const std::optional<std::int32_t> load : {std::optional(37), std::optional(250), std::optional<int>()}) {
    SetLoad(load);
    world_.runtime.AdvanceBy(1s);
    reported.push_back(life.Items(kUsage).back().item_data().at(L"CPUUtilization"));
    SetLoad(0);
    world_.runtime.AdvanceBy(59s);
  }
  EXPECT_EQ(reported, (std::vector<std::wstring>{L"37", L"100", L"0"}));
}

TEST_F(CpuEventMonitorTest, OnlyFivePeaksInARowAreReported) {
  struct Row {
    const char* what;
    std::deque<int> samples;  // the first is passed over; after the last: 0
    const wchar_t* threshold;
    std::vector<std::wstring> reported;
  };
  for (const Row& row : {
           Row{"five at 100", {0, 100, 100, 100, 100, 100}, L"90", {L"100"}},
           Row{"at the threshold", {0, 90, 90, 90, 90, 91}, L"90", {L"91"}},
           Row{"above 100", {0, 180, 180, 180, 180, 180}, L"90", {L"100"}},
           Row{"one below", {0, 100, 100, 89, 100, 100}, L"90", {}},
           Row{"the last below", {0, 100, 100, 100, 100, 89}, L"90", {}},
           Row{"an unusable threshold", {0, 90, 90, 90, 90, 90}, L"101", {L"90"}},
           Row{"a lower threshold", {0, 1, 2, 3, 4, 5}, L"1", {L"5"}},
       }) {
    SCOPED_TRACE(row.what);
    SetSettings({{kInterval, L"1h"}, {L"CPUPeakThreshold", row.threshold}});
    std::deque<int> samples = row.samples;
    // The check of second 0 runs before the settings are read.
    SetLoad(0);
    ServiceLife life(world_);
    const RunningMonitor monitor(world_.runtime, Make(life));
    world_.runtime.AdvanceBy(500ms);
    world_.machine.Change([&](auto& state) {
      state.processor_load = [&samples] {
        const int sample = samples.empty() ? 0 : samples.front();
        if (!samples.empty()) samples.pop_front();
        return std::optional<std::int32_t>(sample);
      };
    });
    world_.runtime.AdvanceBy(1s);
    std::vector<std::wstring> reported;
    for (const ItemEvent& item : life.Items(kPeak))
      reported.push_back(item.item_data().at(L"CPUUtilization"));
    EXPECT_EQ(reported, row.reported);
    SetLoad(0);
  }
}

TEST_F(CpuEventMonitorTest, AStopDuringThePeakCheckStillReportsIt) {
  SetSettings({{kInterval, L"1h"}, {L"CPUPeakThreshold", L"90"}, {L"CPUPeakThresholdDuration", L"10s"}});
  ServiceLife life(world_);
  RunningMonitor monitor(world_.runtime, Make(life));
  world_.runtime.AdvanceBy(900ms);
  SetLoad(95);
  world_.runtime.AdvanceBy(1s);
  EXPECT_TRUE(life.Items(kPeak).empty()) << "the check spans ten seconds";
  const platform::SteadyTime before = world_.runtime.clock().Steady();
  monitor.Stop();
  EXPECT_EQ(world_.runtime.clock().Steady(), before);
  ASSERT_EQ(life.Items(kPeak).size(), 1u);
  EXPECT_EQ(life.Items(kPeak)[0].item_data().at(L"CPUUtilization"), L"95");
  EXPECT_TRUE(world_.logs.Has(L"CpuEventMonitor::CpuCheckEntry: Stop Event received"));
  EXPECT_TRUE(world_.runtime.Threads().empty());
}

TEST_F(CpuEventMonitorTest, AChangeOfTheIntervalMovesTheNextReport) {
  ServiceLife life(world_);
  const std::int64_t start = world_.runtime.clock().NowSeconds();
  const RunningMonitor monitor(world_.runtime, Make(life));
  world_.runtime.AdvanceBy(150s);
  const auto change = [&](std::map<std::wstring, std::wstring> settings) {
    SetSettings(std::move(settings));
    monitor->ReadAndUpdateDatasetSettings();
  };
  change({{kInterval, L"3m"}});
  world_.runtime.AdvanceBy(150s);
  EXPECT_EQ(Times(world_, life.Items(kUsage), start), (Times64{60, 120, 300})) << "three minutes after the last";
  // The same interval leaves the timer alone; an unusable one stops the reports, and a good one starts them again.
  change({{kInterval, L"3m"}, {L"CPUPeakThreshold", L"50"}});
  EXPECT_TRUE(world_.logs.Has(L"CpuEventMonitor::ReadAndUpdateDatasetSettings: No change in ReadUsageInterval"));
  EXPECT_EQ(world_.runtime.Threads().size(), 3u) << "check, tick and usage";
  for (const wchar_t* unusable : {L"", L"59s", L"0m", L"1", L"-1m", L"9999999999d"}) {
    world_.logs.Clear();
    change({{kInterval, L"3m"}});
    change({{kInterval, unusable}});
    EXPECT_TRUE(
        world_.logs.Has(L"CpuEventMonitor::ReadAndUpdateDatasetSettings: Invalid DatasetSettings "
                        L"ReadUsageInterval = 0"));
    world_.runtime.Settle();
    EXPECT_EQ(world_.runtime.Threads().size(), 2u) << "the peak check goes on";
  }
  change({});
  world_.runtime.AdvanceBy(10min);
  EXPECT_EQ(life.Items(kUsage).size(), 3u);
  SetLoad(100);
  world_.runtime.AdvanceBy(1500ms);
  EXPECT_EQ(life.Items(kPeak).size(), 1u);
  SetLoad(5);
  change({{kInterval, L"1m"}});
  world_.runtime.AdvanceBy(60s);
  EXPECT_EQ(life.Items(kUsage).size(), 5u) << "overdue at once, then one a minute";
}

TEST_F(CpuEventMonitorTest, AnUnreadableTopologyIsTriedThreeTimesMore) {
  const platform::TopologyReading failed{.error = 5, .topology = {}};
  struct Row {
    const char* what;
    std::deque<platform::TopologyReading> script;
    std::size_t retries;
    const wchar_t* message;
    bool runs;
  };
  for (const Row& row : {
           Row{"two failures", {failed, failed}, 2, L"retryCount=2", true},
           Row{"failures for good", {failed, failed, failed, failed}, 3, L"GetCpuInformation failed! retid=5", false},
           Row{"no such call",
               {{.supported = false, .topology = {}}},
               0,
               L"GetLogicalProcessorInformation is not supported",
               false},
           Row{"no whole entry",
               {{.returned_bytes = 8, .entry_bytes = 32, .topology = {}}},
               0,
               L"returnLength=8,sizeof(SYSTEM_LOGICAL_PROCESSOR_INFORMATION)=32",
               false},
       }) {
    SCOPED_TRACE(row.what);
    world_.logs.Clear();
    world_.machine.Change([&](auto& state) { state.topology_script = row.script; });
    ServiceLife life(world_);
    const RunningMonitor monitor(world_.runtime, Make(life));
    world_.runtime.AdvanceBy(61s);
    EXPECT_EQ(world_.logs.Count(L"GetCpuInformation-GetLogicalProcessorInformation failed 5,retryCount="), row.retries);
    EXPECT_TRUE(world_.logs.Has(row.message));
    EXPECT_EQ(life.DatasetContexts().size(), row.runs ? 1u : 0u);
    EXPECT_EQ(life.Items(kUsage).size(), row.runs ? 1u : 0u);
    monitor->ReadAndUpdateDatasetSettings();
    EXPECT_EQ(world_.runtime.Threads().size(), row.runs ? 3u : 0u);
  }
}

TEST_F(CpuEventMonitorTest, AMachineWithoutTheUtilityCounterReportsTheTimeCounter) {
  struct Row {
    std::int64_t time_error;
    std::size_t messages;
    const wchar_t* usage;
  };
  for (const Row& row : {Row{0, 1, L"42"}, Row{7, 2, L"0"}}) {
    world_.logs.Clear();
    world_.machine.Change([&](auto& state) {
      state.processor_utility_error = -1073738824;
      state.processor_time_error = row.time_error;
    });
    SetLoad(42);
    CPUInfo info(world_.machine);
    EXPECT_EQ(info.GetCpuUsageInt(), std::stoi(row.usage));
    info.GetCpuUsageInt();
    EXPECT_EQ(world_.logs.Count(L"CPUInfo::InitPdhQuery failed "), row.messages) << "once, not at every sample";
    EXPECT_TRUE(world_.logs.Has(L"CPUInfo::InitPdhQuery failed -1073738824"));
    info.CleanUp();
    world_.machine.Change([](auto& state) { state.processor_utility_error = state.processor_time_error = 0; });
    EXPECT_EQ(info.GetCpuUsageInt(), 42) << "the next try opens it";
  }
}

TEST_F(CpuEventMonitorTest, AStopBeforeTheStartLeavesNothingRunning) {
  ServiceLife life(world_);
  const auto monitor = Make(life);
  monitor->StopMonitor();
  monitor->StartMonitor(L"test");
  monitor->ReadAndUpdateDatasetSettings();
  world_.runtime.AdvanceBy(2min);
  EXPECT_TRUE(life.Items().empty());
  EXPECT_TRUE(world_.runtime.Threads().empty());
}

TEST_F(CpuEventMonitorTest, TheContextEventIsSetOnceTheContextIsLogged) {
  ServiceLife life(world_);
  auto owned = Make(life);
  platform::Event* const event = owned->getDatasetContextEventHandle();
  RunningMonitor monitor(world_.runtime, std::move(owned));
  EXPECT_EQ(world_.runtime.Wait(*event, 10s), 0u);
  monitor->OnDeviceContextChanges(true);
  EXPECT_EQ(world_.runtime.Wait(*event, 0s), 0u);
  ASSERT_EQ(life.DatasetContexts().size(), 2u);
  EXPECT_EQ(life.Items(L"DeviceInit").at(0).dataset_context_id(), life.DatasetContexts()[1].dataset_context_id());
  monitor.Stop();
  EXPECT_EQ(world_.runtime.Wait(*event, 0s), platform::kWaitTimeout);
}

}  // namespace
