#include "monitors/system/cpu_event_monitor.h"

#include <gtest/gtest.h>

#include <deque>

#include "client/text/record_time.h"
#include "client/text/string.h"
#include "monitors/system/cpu_settings.h"
#include "platform/simulated/simulated_processors.h"
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
    world_.machine.processors().Change([&](auto& state) { state.load = [load] { return load; }; });
  }
  /// Another run of the service, on the records of those before.
  void StartLife(int version_answer = 0) {
    monitor_.reset();
    life_.reset();
    life_.emplace(world_);
    life_->manager.version_answer = version_answer;
    monitor_.emplace(world_.runtime, std::make_unique<CpuEventMonitor>(life_->services()));
  }
  void Change(std::map<std::wstring, std::wstring> settings) {
    SetSettings(std::move(settings));
    (*monitor_)->ReadAndUpdateDatasetSettings();
  }
  /// When this life wrote its usage, in seconds since the test's begin.
  std::vector<std::int64_t> UsageTimes() const {
    std::vector<std::int64_t> times;
    for (const ItemEvent& item : life_->Items(kUsage)) {
      const std::string time = TVK::String::UTF16ToUTF8(item.item_time());
      times.push_back(TVK::ParseRecordTime(time, world_.runtime.clock()) - start_);
    }
    return times;
  }
  std::vector<std::wstring> Utilizations(const wchar_t* item_name) const {
    std::vector<std::wstring> reported;
    for (const ItemEvent& item : life_->Items(item_name))
      reported.push_back(item.item_data().at(L"CPUUtilization"));
    return reported;
  }

  using Times = std::vector<std::int64_t>;
  using Texts = std::vector<std::wstring>;

  MonitorWorld world_;
  const std::int64_t start_ = world_.runtime.clock().NowSeconds();
  CPUInfo info_{world_.machine.processors()};
  std::optional<ServiceLife> life_;
  std::optional<RunningMonitor> monitor_;
};

TEST_F(CpuEventMonitorTest, TheFirstStartDescribesTheProcessorAndTellsThatItDid) {
  StartLife(2);
  platform::Event* const described = static_cast<CpuEventMonitor&>(**monitor_).getDatasetContextEventHandle();
  EXPECT_EQ(world_.runtime.Wait(*described, 10s), 0u);
  world_.runtime.Settle();
  (*monitor_)->OnDeviceContextChanges(true);
  EXPECT_EQ(world_.runtime.Wait(*described, 0s), 0u);
  const std::vector<DatasetContext> contexts = life_->DatasetContexts();
  ASSERT_EQ(contexts.size(), 2u);
  EXPECT_EQ(contexts[0].item_data(), (ItemData{{L"cpu_name", L"Simulated Processor 4000"},
                                               {L"cpu_addresswidth", L"64"},
                                               {L"cpu_numofcores", L"4"},
                                               {L"cpu_numoflogicalprocessors", L"8"},
                                               {L"cpu_l2cachesize", L"4194304"},
                                               {L"cpu_l3cachesize", L"8388608"}}));
  const std::vector<ItemEvent> items = life_->Items(L"DeviceInit");
  ASSERT_EQ(items.size(), 2u);
  EXPECT_EQ(items[0].dataset_context_id(), contexts[0].dataset_context_id());
  EXPECT_EQ(items[1].dataset_context_id(), contexts[1].dataset_context_id());
  monitor_->Stop();
  EXPECT_EQ(world_.runtime.Wait(*described, 0s), platform::kWaitTimeout);
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

TEST(CpuSettingsTest, OnlyAThresholdBringsTheDurationIntoForce) {
  EXPECT_EQ(ReadCpuSettings({{L"CPUPeakThresholdDuration", L"2s"}}).peak_threshold_duration_ms, 10u);
  const CpuSettings read = ReadCpuSettings({{L"CPUPeakThreshold", L"500"}, {L"CPUPeakThresholdDuration", L"2s"}});
  EXPECT_EQ(read.peak_threshold_percent, 90);
  EXPECT_EQ(read.peak_threshold_duration_ms, 2000u);
}

TEST_F(CpuEventMonitorTest, ARestartKeepsTheRhythmAndInitialisesNothing) {
  SetSettings({{kInterval, L"10m"}});
  StartLife(2);
  world_.runtime.AdvanceBy(14min);
  EXPECT_EQ(UsageTimes(), (Times{600}));
  monitor_.reset();
  world_.runtime.AdvanceBy(2min);
  StartLife();
  world_.runtime.AdvanceBy(14min);
  EXPECT_EQ(UsageTimes(), (Times{1200, 1800})) << "16 of 20 minutes had passed";
  EXPECT_TRUE(life_->Items(L"DeviceInit").empty());
  monitor_.reset();
  world_.runtime.AdvanceBy(1h);
  StartLife();
  world_.runtime.Settle();
  EXPECT_EQ(UsageTimes(), (Times{5400})) << "overdue: at once";
}

TEST_F(CpuEventMonitorTest, UsageIsCappedAndAFailingSampleIsZero) {
  SetSettings({{kInterval, L"1m"}, {L"CPUPeakThreshold", L"100"}});
  StartLife();
  for (const std::optional<std::int32_t> load : {std::optional(37), std::optional(250), std::optional<int>()}) {
    SetLoad(load);
    world_.runtime.AdvanceBy(1min);
  }
  EXPECT_EQ(Utilizations(kUsage), (Texts{L"37", L"100", L"0"}));
}

TEST_F(CpuEventMonitorTest, OnlyFivePeaksInARowAreReported) {
  struct Row {
    std::deque<int> samples;  // the first is passed over; after the last: 0
    const wchar_t* threshold;
    Texts reported;
  };
  for (const Row& row : {
           Row{{0, 90, 90, 90, 90, 91}, L"90", {L"91"}},
           Row{{0, 180, 180, 180, 180, 180}, L"90", {L"100"}},
           Row{{0, 100, 100, 89, 100, 100}, L"90", {}},
           Row{{0, 100, 100, 100, 100, 89}, L"90", {}},
           Row{{0, 90, 90, 90, 90, 90}, L"101", {L"90"}},
           Row{{0, 1, 2, 3, 4, 5}, L"1", {L"5"}},
       }) {
    SCOPED_TRACE(testing::PrintToString(row.samples));
    SetSettings({{kInterval, L"1h"}, {L"CPUPeakThreshold", row.threshold}});
    std::deque<int> samples = row.samples;
    // The check of second 0 runs before the settings are read.
    SetLoad(0);
    StartLife();
    world_.runtime.AdvanceBy(500ms);
    world_.machine.processors().Change([&](auto& state) {
      state.load = [&samples] {
        const int sample = samples.empty() ? 0 : samples.front();
        if (!samples.empty()) samples.pop_front();
        return std::optional<std::int32_t>(sample);
      };
    });
    world_.runtime.AdvanceBy(1s);
    EXPECT_EQ(Utilizations(kPeak), row.reported);
    SetLoad(0);
  }
}

TEST_F(CpuEventMonitorTest, AStopDuringThePeakCheckStillReportsIt) {
  SetSettings({{kInterval, L"1h"}, {L"CPUPeakThreshold", L"90"}, {L"CPUPeakThresholdDuration", L"10s"}});
  StartLife();
  world_.runtime.AdvanceBy(900ms);
  SetLoad(95);
  world_.runtime.AdvanceBy(1s);
  EXPECT_TRUE(life_->Items(kPeak).empty()) << "the check spans ten seconds";
  const platform::SteadyTime before = world_.runtime.clock().Steady();
  monitor_->Stop();
  EXPECT_EQ(world_.runtime.clock().Steady(), before);
  EXPECT_EQ(Utilizations(kPeak), (Texts{L"95"}));
  EXPECT_TRUE(world_.runtime.Threads().empty());
}

TEST_F(CpuEventMonitorTest, AWithdrawnConsentEndsThePeakCheckWithoutARecord) {
  SetSettings({{kInterval, L"1h"}, {L"CPUPeakThreshold", L"90"}, {L"CPUPeakThresholdDuration", L"10s"}});
  StartLife();
  world_.runtime.AdvanceBy(900ms);
  SetLoad(95);
  world_.runtime.AdvanceBy(1s);
  EventMonitorBase::SetTelemetryScope(L"none");
  monitor_->Stop();
  EventMonitorBase::SetTelemetryScope(L"full");
  EXPECT_TRUE(life_->Items(kPeak).empty());
}

TEST_F(CpuEventMonitorTest, AChangeOfTheIntervalMovesTheNextReport) {
  StartLife();
  world_.runtime.AdvanceBy(150s);
  Change({{kInterval, L"3m"}});
  world_.runtime.AdvanceBy(150s);
  EXPECT_EQ(UsageTimes(), (Times{60, 120, 300})) << "three minutes after the last";
  // The same interval leaves the timer alone; an unusable one stops the reports, and a good one starts them again.
  Change({{kInterval, L"3m"}, {L"CPUPeakThreshold", L"50"}});
  EXPECT_EQ(world_.runtime.Threads().size(), 3u) << "check, tick and usage";
  Change({{kInterval, L"59s"}});
  EXPECT_TRUE(world_.logs.Has(L"Invalid DatasetSettings ReadUsageInterval = 0"));
  world_.runtime.Settle();
  EXPECT_EQ(world_.runtime.Threads().size(), 2u) << "the peak check goes on";
  world_.runtime.AdvanceBy(10min);
  EXPECT_EQ(life_->Items(kUsage).size(), 3u);
  Change({{kInterval, L"1m"}});
  world_.runtime.AdvanceBy(60s);
  EXPECT_EQ(life_->Items(kUsage).size(), 5u) << "overdue at once, then one a minute";
}

TEST_F(CpuEventMonitorTest, AnUnreadableTopologyIsTriedThreeTimesMore) {
  const platform::TopologyReading failed{.error = 5, .topology = {}};
  struct Row {
    std::deque<platform::TopologyReading> script;
    std::size_t retries;
    const wchar_t* message;
    std::size_t runs;
  };
  for (const Row& row : {
           Row{{failed, failed}, 2, L"retryCount=2", 1},
           Row{{failed, failed, failed, failed}, 3, L"GetCpuInformation failed! retid=5", 0},
           Row{{{.supported = false, .topology = {}}}, 0, L"GetLogicalProcessorInformation is not supported", 0},
           Row{{{.returned_bytes = 8, .entry_bytes = 32, .topology = {}}}, 0, L"returnLength=8,sizeof", 0},
       }) {
    SCOPED_TRACE(TVK::String::UTF16ToUTF8(row.message));
    world_.logs.Clear();
    world_.machine.processors().Change([&](auto& state) { state.topology_script = row.script; });
    StartLife();
    world_.runtime.AdvanceBy(61s);
    EXPECT_EQ(world_.logs.Count(L"GetCpuInformation-GetLogicalProcessorInformation failed 5,retryCount="), row.retries);
    EXPECT_TRUE(world_.logs.Has(row.message));
    EXPECT_EQ(life_->Items(kUsage).size(), row.runs);
    (*monitor_)->ReadAndUpdateDatasetSettings();
    EXPECT_EQ(world_.runtime.Threads().size(), 3 * row.runs);
  }
}

TEST_F(CpuEventMonitorTest, AMachineWithoutTheUtilityCounterReportsTheTimeCounter) {
  SetLoad(42);
  for (const auto& [time_error, messages, usage] : {std::tuple(0, 1u, 42), std::tuple(7, 2u, 0)}) {
    world_.logs.Clear();
    world_.machine.processors().Change([&, error = time_error](auto& state) {
      state.utility_error = -1073738824;
      state.time_error = error;
    });
    EXPECT_EQ(info_.GetCpuUsageInt(), usage);
    EXPECT_EQ(info_.GetCpuUsageInt(), usage);
    EXPECT_EQ(world_.logs.Count(L"CPUInfo::InitPdhQuery failed "), messages) << "once, not at every sample";
    info_.CleanUp();
  }
  world_.machine.processors().Change([](auto& state) { state.utility_error = state.time_error = 0; });
  EXPECT_EQ(info_.GetCpuUsageInt(), 42) << "the next try opens it";
}

TEST_F(CpuEventMonitorTest, AStopBeforeTheStartLeavesNothingRunning) {
  ServiceLife life(world_);
  CpuEventMonitor monitor(life.services());
  monitor.StopMonitor();
  monitor.StartMonitor(L"test");
  monitor.ReadAndUpdateDatasetSettings();
  world_.runtime.AdvanceBy(2min);
  EXPECT_TRUE(life.Items().empty());
  EXPECT_TRUE(world_.runtime.Threads().empty());
}

}  // namespace
