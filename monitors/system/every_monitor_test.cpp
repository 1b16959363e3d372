// What each monitor owes to its manager: rhythm, stop and consent.
#include <gtest/gtest.h>

#include <ostream>
#include <set>

#include "client/text/record_time.h"
#include "client/text/string.h"
#include "monitors/devices/battery_event_monitor.h"
#include "monitors/logs/crash_event_monitor.h"
#include "monitors/logs/event_viewer_log_db_event_monitor.h"
#include "monitors/logs/windows_logs_event_monitor.h"
#include "monitors/storage/store_event_monitor.h"
#include "monitors/system/cpu_event_monitor.h"
#include "monitors/system/memory_event_monitor.h"
#include "monitors/system/system_bios_event_monitor.h"
#include "platform/simulated/simulated_event_log.h"
#include "platform/simulated/simulated_processors.h"
#include "platform/simulated/simulated_system.h"
#include "testing/monitor_world.h"

namespace TVK {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only

template <class Monitor>
std::unique_ptr<EventMonitorBase> Make(const MonitorServices& services) {
  return std::make_unique<Monitor>(services);
}

struct Case {
  const DatasetRow& row;
  std::unique_ptr<EventMonitorBase> (*make)(const MonitorServices&);
  const wchar_t* report = nullptr;  ///< The item of its interval; null when it has none.
  std::size_t devices = 1;          ///< That it describes of the simulated machine.
  bool described_anew = true;       ///< With each start, though nothing changed.
};

std::string Name(const Case& monitor) {
  return String::UTF16ToUTF8(std::wstring(monitor.row.name));
}
void PrintTo(const Case& monitor, std::ostream* out) {
  *out << Name(monitor);
}

class EveryMonitorTest : public testing::TestWithParam<Case> {
 protected:
  EveryMonitorTest() {
    world_.config.SetPolicy(
        MakePolicy(L"full", {{std::wstring(GetParam().row.id), std::wstring(GetParam().row.name)}}));
    SetInterval(L"10m");
  }
  void SetInterval(const wchar_t* interval) {
    world_.config.SetSettings(std::wstring(GetParam().row.name), {{L"ReadUsageInterval", interval}});
    if (monitor_) (*monitor_)->ReadAndUpdateDatasetSettings();
  }
  void StartLife(bool consent = true, bool new_device = false) {
    monitor_.reset();
    life_.emplace(world_);
    life_->consent.given = consent;
    life_->manager.first_invocation = new_device;
    monitor_.emplace(world_.runtime, GetParam().make(life_->services()));
    world_.runtime.Settle();
  }
  /// When this life wrote its report, in seconds since the test's begin.
  std::vector<std::int64_t> Reports() const {
    std::vector<std::int64_t> times;
    for (const ItemEvent& item : life_->Items(GetParam().report)) {
      times.push_back(ParseRecordTime(String::UTF16ToUTF8(item.item_time()), world_.runtime.clock()) - start_);
    }
    return times;
  }

  using Times = std::vector<std::int64_t>;

  MonitorWorld world_;
  const std::int64_t start_ = world_.runtime.clock().NowSeconds();
  std::optional<ServiceLife> life_;
  std::optional<RunningMonitor> monitor_;
};

TEST_P(EveryMonitorTest, NothingIsWrittenWithoutConsent) {
  int samples = 0;
  world_.machine.system().Change([&](auto& state) { state.boot_time = start_; });
  world_.machine.processors().Change([&](auto& state) {
    state.load = [&] { return std::optional<std::int32_t>(++samples > 0 ? 100 : 0); };
    state.topology_script = {state.topology};
  });
  SetInterval(L"1m");
  StartLife(false);
  world_.runtime.AdvanceBy(2min);
  (*monitor_)->OnDeviceContextChanges(true);
  EXPECT_EQ(life_->Items().size() + life_->DatasetContexts().size(), 0u);
  EXPECT_EQ(samples, 0);
  EXPECT_EQ(world_.machine.processors().Get().topology_script.size(), 1u) << "nothing was looked at";
  EXPECT_FALSE(world_.logs.Has(L"the machine gives no SMBIOS table"));
  life_->consent.given = true;
  world_.runtime.AdvanceBy(2min);
  EXPECT_EQ(life_->DatasetContexts().empty(), GetParam().report == nullptr) << "what goes on describes itself first";
  StartLife(true);
  world_.machine.event_log().Append({.channel = "Application",
                                     .provider = "Application Hang",
                                     .id = 1002,
                                     .level = 2,
                                     .time = world_.runtime.clock().Now()});
  world_.runtime.AdvanceBy(2min);
  EXPECT_EQ(life_->DatasetContexts().size(),
            GetParam().described_anew || GetParam().report == nullptr ? GetParam().devices : 0u);
  const std::size_t written = life_->Items().size();
  EXPECT_GE(written, 1u);
  life_->consent.given = false;
  const int sampled = samples;
  world_.runtime.AdvanceBy(2min);
  monitor_.reset();
  EXPECT_EQ(life_->Items().size(), written);
  EXPECT_EQ(samples, sampled);
}

TEST_P(EveryMonitorTest, ANewDeviceIsInitialisedOnceInItsContext) {
  StartLife(true, true);
  const std::vector<ItemEvent> items = life_->Items(L"DeviceInit");
  std::set<std::wstring> described;
  for (const ItemEvent& item : items)
    described.insert(item.dataset_context_id());
  std::set<std::wstring> ids;
  for (const DatasetContext& context : life_->DatasetContexts())
    ids.insert(String::ToUpper(context.dataset_context_id()));
  EXPECT_EQ(ids.size(), GetParam().devices);
  EXPECT_EQ(described, ids);
  EXPECT_EQ(items.size(), ids.size());
  StartLife();
  EXPECT_TRUE(life_->Items(L"DeviceInit").empty());
  EXPECT_EQ(life_->DatasetContexts().size(), GetParam().described_anew ? GetParam().devices : 0u);
}

TEST_P(EveryMonitorTest, AStopBeforeTheStartLeavesNothingRunning) {
  ServiceLife life(world_);
  const auto monitor = GetParam().make(life.services());
  monitor->Initialize();
  monitor->StopMonitor();
  monitor->StartMonitor(L"test");
  monitor->ReadAndUpdateDatasetSettings();
  world_.runtime.AdvanceBy(20min);
  EXPECT_TRUE(world_.runtime.Threads().empty());
  for (const ItemEvent& item : life.Items())
    EXPECT_EQ(item.item_name(), L"DeviceInit");
}

class ReportingMonitorTest : public EveryMonitorTest {};

TEST_P(ReportingMonitorTest, ReportsKeepTheirRhythmOverRestartsAndChanges) {
  StartLife();
  world_.runtime.AdvanceBy(2min);
  world_.runtime.Suspend(8min);
  world_.runtime.AdvanceBy(4min);
  EXPECT_EQ(Reports(), (Times{600})) << "sleep counts";
  monitor_.reset();
  world_.runtime.AdvanceBy(2min);
  StartLife();
  world_.runtime.AdvanceBy(14min);
  EXPECT_EQ(Reports(), (Times{1200, 1800})) << "16 of 20 minutes had passed";
  SetInterval(L"3m");
  world_.runtime.AdvanceBy(4min);
  EXPECT_EQ(Reports(), (Times{1200, 1800, 1980})) << "three minutes after the last";
  const std::size_t threads = world_.runtime.Threads().size();
  SetInterval(L"3m");
  EXPECT_EQ(world_.runtime.Threads().size(), threads) << "the same interval leaves the timer alone";
  SetInterval(L"59x");
  EXPECT_TRUE(world_.logs.Has(L"ReadUsageInterval: \"59x\" does not match"));
  EXPECT_TRUE(world_.logs.Has(L"Invalid DatasetSettings ReadUsageInterval = 0"));
  world_.runtime.AdvanceBy(30min);
  EXPECT_EQ(world_.runtime.Threads().size(), threads - 1) << "no reports, and the rest goes on";
  EXPECT_EQ(Reports().size(), 3u);
  SetInterval(L"1h");
  EXPECT_TRUE(world_.logs.Has(L"ReadAndUpdateDatasetSettings: delay = 1740 seconds"));
  SetInterval(L"1m");
  world_.runtime.AdvanceBy(1min);
  EXPECT_EQ(Reports().size(), 5u) << "overdue at once, then one a minute";
  (*monitor_)->ReadAndUpdateDatasetSettings();
  EXPECT_TRUE(world_.logs.Has(L"ReadAndUpdateDatasetSettings: No change in ReadUsageInterval"));
}

const Case kReporting[] = {
    {CpuEventMonitor::kRow, Make<CpuEventMonitor>, L"ReadUsagePerInterval"},
    {MemoryEventMonitor::kRow, Make<MemoryEventMonitor>, L"MemoryUsagePerInterval"},
    {StoreEventMonitor::kRow, Make<StoreEventMonitor>, L"ReadVolumePerInterval", 2, false},
    {BatteryEventMonitor::kRow, Make<BatteryEventMonitor>, L"BatteryUsagePerInterval", 1, false}};
const Case kOthers[] = {{SystemBiosEventMonitor::kRow, Make<SystemBiosEventMonitor>, nullptr, 1, false},
                        {CrashEventMonitor::kRow, Make<CrashEventMonitor>, nullptr, 1, false},
                        {EventViewerLogDBEventMonitor::kRow, Make<EventViewerLogDBEventMonitor>, nullptr, 1, false},
                        {WindowsLogsEventMonitor::kRow, Make<WindowsLogsEventMonitor>, nullptr, 1, false}};

const auto kNameOfCase = [](const auto& test) { return Name(test.param); };
INSTANTIATE_TEST_SUITE_P(Reporting, EveryMonitorTest, testing::ValuesIn(kReporting), kNameOfCase);
INSTANTIATE_TEST_SUITE_P(Others, EveryMonitorTest, testing::ValuesIn(kOthers), kNameOfCase);
INSTANTIATE_TEST_SUITE_P(Reporting, ReportingMonitorTest, testing::ValuesIn(kReporting), kNameOfCase);

}  // namespace

}  // namespace TVK
