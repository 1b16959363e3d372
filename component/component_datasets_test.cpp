#include "component/component_datasets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <iterator>
#include <set>

#include "client/text/string.h"
#include "monitors/system/cpu_event_monitor.h"
#include "platform/simulated/simulated_drives.h"
#include "platform/simulated/simulated_processors.h"
#include "platform/simulated/simulated_volumes.h"
#include "platform/system_event.h"
#include "testing/manager_world.h"
#include "testing/source_tree.h"

namespace TVK {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only

TEST(ComponentDatasetsTest, EveryRowIsWellFormed) {
  MonitorWorld world;
  ServiceLife life(world);
  const DatasetTable table = MakeComponentDatasets();
  std::set<std::wstring_view> ids;
  std::set<std::wstring_view> names;
  int rank = 0;
  for (const Dataset& dataset : table.datasets()) {
    const DatasetRow& row = dataset.row;
    SCOPED_TRACE(String::UTF16ToUTF8(std::wstring(row.name)));
    EXPECT_EQ(row.id, String::ToUpper(std::wstring(row.id))) << "settings are found under the id as it is written";
    EXPECT_TRUE(ids.insert(row.id).second);
    EXPECT_TRUE(names.insert(row.name).second);
    EXPECT_EQ(row.rank, rank++);
    EXPECT_EQ(table.FindByName(row.name), &dataset);
    const bool has_monitor = row.rule != DatasetRule::kDeviceContext;
    ASSERT_EQ(static_cast<bool>(dataset.factory), has_monitor);
    if (!has_monitor) continue;
    EXPECT_EQ(dataset.factory(life.services())->GetName(), row.name);
  }
}

TEST(ServiceDayTest, DefaultPolicyGivesOneReportAMinute) {
  std::ifstream file(FromSourceTree("config/policy.default.json"), std::ios::binary);
  const PolicyDocument document =
      ParseTelemetryPolicy(std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()));
  ASSERT_TRUE(document.policy.has_value());
  EXPECT_TRUE(document.problems.empty());
  MonitorWorld world;
  world.config.SetPolicy(*document.policy);
  const DatasetTable table = MakeComponentDatasets();
  ManagerLife life(world, table);
  life.Start();
  world.runtime.AdvanceBy(4h);
  life.manager.Stop();
  for (const ItemEvent& item : life.records.Items())
    EXPECT_EQ(item.device_context_id(), life.manager.get_device_context_id());
  EXPECT_EQ(std::ranges::count(life.records.Items(), CpuEventMonitor::dataset_name, &ItemEvent::dataset_name), 241)
      << "one a minute and the device's initialisation";
  EXPECT_EQ(life.records.DeviceContexts().size(), 1u);
}

// A shutdown of the system waits for some seconds only.
TEST(StopTest, TakesNoLongerThanTheServiceAsksForWhateverItsMonitorsAreBusyWith) {
  MonitorWorld world;
  const auto released = world.runtime.MakeEvent(platform::EventReset::kManual);
  std::atomic<int> questions = 0;
  const auto hang = [&](auto) {
    ++questions;
    world.runtime.Wait(*released, platform::kForever);
    return platform::DriveAnswer{platform::DriveResult::kFailed};
  };
  world.machine.volumes().while_listing = [&] { hang(0); };
  std::vector<platform::SimulatedDrive> drives;
  for (const auto& [bus, rotating] : {std::pair(platform::DriveBus::kNvme, false),
                                      {platform::DriveBus::kAta, false},
                                      {platform::DriveBus::kAta, true}}) {
    const std::string name = "drive" + std::to_string(drives.size());
    drives.push_back({.listing = {.path = name, .bus = bus, .model = name, .serial_number = name, .rotating = rotating},
                      .read = hang,
                      .act = hang});
  }
  world.machine.drives().Set(drives);
  world.machine.processors().Set({.load = [] { return std::optional<std::int32_t>(100); }});
  world.config.SetPolicy(PolicyOf(L"full"));
  world.config.SetSettings(L"CPUEvent", {{L"CPUPeakThreshold", L"1"}, {L"CPUPeakThresholdDuration", L"60s"}});
  const DatasetTable table = MakeComponentDatasets();
  ManagerLife life(world, table);
  life.Start();
  world.runtime.AdvanceBy(70s);  // monitors of drives wait a minute for the volumes
  EXPECT_GE(questions, 3);
  life.manager.OnSystemEvent(platform::PowerSource::kBattery);
  const platform::SteadyTime before = world.runtime.clock().Steady();
  life.manager.Stop();
  EXPECT_LT(world.runtime.clock().Steady() - before, 5s);
  released->Set();
  world.runtime.Settle();
}

}  // namespace

}  // namespace TVK
