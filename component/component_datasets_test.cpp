#include "component/component_datasets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>

#include "client/text/string.h"
#include "monitors/system/cpu_event_monitor.h"
#include "platform/simulated/simulated_processors.h"
#include "testing/manager_world.h"

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
    const bool has_monitor = row.rule != DatasetRule::kUserProcess && row.rule != DatasetRule::kDeviceContext;
    ASSERT_EQ(static_cast<bool>(dataset.factory), has_monitor);
    if (!has_monitor) continue;
    EXPECT_EQ(dataset.factory(life.services())->GetName(), row.name);
  }
}

TEST(ServiceDayTest, DefaultPolicyGivesOneReportAMinute) {
  std::ifstream file(std::string(TVK_CONFIG_FOLDER) + "/policy.default.json", std::ios::binary);
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

}  // namespace

}  // namespace TVK
