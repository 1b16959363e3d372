#include "monitors/system/cpu_event_monitor.h"

#include <gtest/gtest.h>

#include <deque>

#include "client/text/string.h"
#include "monitors/system/cpu_settings.h"
#include "platform/simulated/simulated_processors.h"
#include "testing/monitor_world.h"

namespace TVK {
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
  void StartLife() {
    monitor_.reset();
    life_.emplace(world_);
    monitor_.emplace(world_.runtime, std::make_unique<CpuEventMonitor>(life_->services()));
  }
  std::vector<std::wstring> Utilizations(const wchar_t* item_name) const {
    std::vector<std::wstring> reported;
    for (const ItemEvent& item : life_->Items(item_name))
      reported.push_back(item.item_data().at(L"CPUUtilization"));
    return reported;
  }

  using Texts = std::vector<std::wstring>;

  MonitorWorld world_;
  std::optional<ServiceLife> life_;
  std::optional<RunningMonitor> monitor_;
};

TEST_F(CpuEventMonitorTest, TheStartDescribesTheProcessor) {
  StartLife();
  world_.runtime.Settle();
  EXPECT_EQ(life_->DatasetContexts().at(0).item_data(), (ItemData{{L"cpu_name", L"Simulated Processor 4000"},
                                                                  {L"cpu_addresswidth", L"64"},
                                                                  {L"cpu_numofcores", L"4"},
                                                                  {L"cpu_numoflogicalprocessors", L"8"},
                                                                  {L"cpu_l2cachesize", L"4194304"},
                                                                  {L"cpu_l3cachesize", L"8388608"}}));
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

/// Their counters say how many milliseconds each sample covers: none when nothing was measured.
class MeasuredProcessors final : public platform::Processors {
 public:
  explicit MeasuredProcessors(const platform::Clock& clock) : clock_(clock) {}
  platform::ProcessorLoadOpening OpenUtility() override { return {std::make_unique<Counter>(clock_), 0}; }
  platform::ProcessorLoadOpening OpenTime() override { return {nullptr, 1}; }
  platform::TopologyReading ReadTopology() override {
    platform::TopologyReading reading;
    reading.topology.cores = 1;
    return reading;
  }

 private:
  class Counter final : public platform::ProcessorLoadReader {
   public:
    explicit Counter(const platform::Clock& clock) : clock_(clock), sampled_at_(clock.Steady()) {}
    std::optional<std::int32_t> Sample() override {
      const platform::SteadyTime before = std::exchange(sampled_at_, clock_.Steady());
      return static_cast<std::int32_t>((sampled_at_ - before) / 1ms);
    }

   private:
    const platform::Clock& clock_;
    platform::SteadyTime sampled_at_;
  };
  const platform::Clock& clock_;
};

TEST_F(CpuEventMonitorTest, EverySampleCoversASpanThatMeansSomething) {
  MeasuredProcessors processors(world_.runtime.clock());
  CPUInfo info(processors, world_.runtime.clock());
  EXPECT_EQ(info.GetCpuUsageInt(), 0) << "nothing is measured yet";
  EXPECT_EQ(info.UntilMeasured(), 100ms);
  world_.runtime.AdvanceBy(99ms);
  EXPECT_EQ(info.GetCpuUsageInt(), 0);
  EXPECT_EQ(info.UntilMeasured(), 1ms);
  world_.runtime.AdvanceBy(901ms);
  EXPECT_EQ(info.UntilMeasured(), 0ms);
  std::vector<int> spans;
  for (const auto pause : {0ms, 0ms, 2ms, 2ms, 2ms, 2ms, 2ms, 400ms, 99ms, 1ms}) {
    world_.runtime.AdvanceBy(pause);
    spans.push_back(info.GetCpuUsageInt());
  }
  EXPECT_EQ(spans, (std::vector<int>{1000, 1000, 1002, 1004, 1006, 1008, 1008, 402, 503, 100}))
      << "six at once have their own; the seventh is the last again, and later ones begin at the youngest old enough";
}

TEST_F(CpuEventMonitorTest, TheUsageOfAnOverdueStartIsMeasured) {
  StartLife();
  world_.runtime.AdvanceBy(61s);
  monitor_.reset();
  world_.runtime.AdvanceBy(1h);
  platform::MachineDoors doors;
  doors.processors = std::make_unique<MeasuredProcessors>(world_.runtime.clock());
  platform::Machine machine(std::move(doors));
  const MonitorServices& given = life_->services();
  const MonitorServices services{
      given.runtime,    machine,         given.store, given.config,  given.machine_information, given.tvk_info,
      given.hard_disks, given.batteries, given.news,  given.manager, given.second_tick,         given.consent};
  monitor_.emplace(world_.runtime, std::make_unique<CpuEventMonitor>(services));
  world_.runtime.Settle();
  EXPECT_EQ(life_->Items(kUsage).size(), 1u) << "that of the run before";
  world_.runtime.AdvanceBy(100ms);
  EXPECT_EQ(Utilizations(kUsage).back(), L"100");
  EXPECT_EQ(life_->Items(kUsage).size(), 2u);
  monitor_.reset();
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
    const wchar_t* duration = L"14ms";
    std::chrono::milliseconds span = 10ms;
  };
  for (const Row& row : {
           Row{{0, 90, 90, 90, 90, 91}, L"90", {L"91"}},
           Row{{0, 180, 180, 180, 180, 180}, L"90", {L"100"}},
           Row{{0, 100, 100, 89, 100, 100}, L"90", {}},
           Row{{0, 100, 100, 100, 100, 89}, L"90", {}},
           Row{{0, 90, 90, 90, 90, 90}, L"101", {L"90"}},
           Row{{0, 1, 2, 3, 4, 5}, L"1", {L"5"}, L"15ms", 15ms},
           Row{{0, 1, 2, 3, 4, 6}, L"1", {L"6"}, L"1s", 1s},
       }) {
    SCOPED_TRACE(testing::PrintToString(row.samples));
    SetSettings(
        {{kInterval, L"1h"}, {L"CPUPeakThreshold", row.threshold}, {L"CPUPeakThresholdDuration", row.duration}});
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
    world_.runtime.AdvanceBy(500ms + row.span - 1ms);
    EXPECT_EQ(Utilizations(kPeak), Texts{});
    world_.runtime.AdvanceBy(1ms);
    EXPECT_EQ(Utilizations(kPeak), row.reported);
    SetLoad(0);
  }
}

TEST_F(CpuEventMonitorTest, AStopDuringThePeakCheckStillReportsItButNotWithoutConsent) {
  SetSettings({{kInterval, L"1h"}, {L"CPUPeakThreshold", L"90"}, {L"CPUPeakThresholdDuration", L"10s"}});
  for (const Texts& reported : {Texts{L"95"}, Texts{}}) {
    SetLoad(0);
    StartLife();
    world_.runtime.AdvanceBy(900ms);
    SetLoad(95);
    world_.runtime.AdvanceBy(1s);
    EXPECT_TRUE(life_->Items(kPeak).empty()) << "the check spans ten seconds";
    life_->consent.given = !reported.empty();
    const platform::SteadyTime before = world_.runtime.clock().Steady();
    monitor_->Stop();
    EXPECT_EQ(world_.runtime.clock().Steady(), before);
    EXPECT_EQ(Utilizations(kPeak), reported);
    monitor_.reset();
  }
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
    SCOPED_TRACE(String::UTF16ToUTF8(row.message));
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

TEST_F(CpuEventMonitorTest, ACounterIsOpenedAgainAndItsFailureToldOnce) {
  SetLoad(42);
  const auto fail = [&](std::int64_t utility, std::int64_t time) {
    world_.machine.processors().Change([&](auto& state) {
      state.utility_error = utility;
      state.time_error = time;
    });
  };
  CPUInfo info(world_.machine.processors(), world_.runtime.clock());
  const auto sample_in = [&](std::chrono::milliseconds time) {
    world_.runtime.AdvanceBy(time);
    return info.GetCpuUsageInt();
  };
  const auto told = [&] {
    return std::tuple(world_.logs.Count(L"CPUInfo::InitPdhQuery failed "), world_.logs.Count(L"cannot be read; 0 is"),
                      world_.logs.Count(L"can be read again"));
  };
  fail(-1073738824, 7);
  EXPECT_EQ(sample_in(0ms), 0);
  EXPECT_EQ(info.UntilMeasured(), 0ms);
  EXPECT_EQ(sample_in(5min), 0);
  EXPECT_EQ(told(), std::tuple(2u, 1u, 0u));
  fail(-1073738824, 0);
  EXPECT_EQ(sample_in(5min - 1ms), 0);
  EXPECT_EQ(sample_in(1ms), 0) << "opened, and nothing is measured yet";
  EXPECT_EQ(sample_in(99ms), 0);
  EXPECT_EQ(sample_in(1ms), 42) << "the time counter, where the system lacks the utility";
  EXPECT_EQ(told(), std::tuple(2u, 1u, 1u));
  SetLoad(std::nullopt);
  EXPECT_EQ(sample_in(1s) + sample_in(1s), 0);
  EXPECT_EQ(told(), std::tuple(2u, 2u, 1u));
  SetLoad(42);
  EXPECT_EQ(sample_in(1s), 42);
  EXPECT_EQ(told(), std::tuple(2u, 2u, 2u));
  SetLoad(std::nullopt);
  EXPECT_EQ(sample_in(1s), 0);
  SetLoad(42);
  EXPECT_EQ(sample_in(5min), 0) << "a counter whose samples fail is opened anew, too";
  EXPECT_EQ(sample_in(100ms), 42);
  info.CleanUp();
  EXPECT_EQ(sample_in(0ms), 0) << "nothing is measured by the next one yet";
}

}  // namespace

}  // namespace TVK
