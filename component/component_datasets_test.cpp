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
    SCOPED_TRACE(TVK::String::UTF16ToUTF8(std::wstring(row.name)));
    EXPECT_EQ(row.id, TVK::String::ToUpper(std::wstring(row.id))) << "settings are found under the id as it is written";
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

/// What the service writes in `time`: item and dataset contexts, a line each, sorted: monitors that are due at the same
/// moment may write in any order.
std::vector<std::wstring> Live(const TelemetryPolicy& policy, std::chrono::hours time) {
  MonitorWorld world;
  world.config.SetPolicy(policy);
  const DatasetTable table = MakeComponentDatasets();
  ManagerLife life(world, table);
  life.Start();
  world.runtime.AdvanceBy(time);
  life.manager.Stop();
  std::vector<std::wstring> written;
  for (const DatasetContext& context : life.service.DatasetContexts())
    written.push_back(context.dataset_context_datetime() + L" " + context.dataset_name());
  for (const ItemEvent& item : life.service.Items()) {
    EXPECT_EQ(item.device_context_id(), life.manager.get_device_context_id());
    written.push_back(item.item_time() + L" " + item.dataset_name() + L" " + item.item_name());
  }
  EXPECT_EQ(std::ranges::count(life.service.Items(), CpuEventMonitor::dataset_name, &ItemEvent::dataset_name),
            std::chrono::minutes(time).count() + 1)
      << "one a minute and the device's initialisation";
  EXPECT_EQ(life.service.DeviceContexts().size(), 1u);
  std::ranges::sort(written);
  return written;
}

TEST(ServiceDayTest, DefaultPolicyGivesOneReportAMinuteAndTheSameEachTime) {
  std::ifstream file(std::string(TVK_CONFIG_FOLDER) + "/policy.default.json", std::ios::binary);
  const PolicyDocument document =
      ParseTelemetryPolicy(std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()));
  ASSERT_TRUE(document.policy.has_value());
  EXPECT_TRUE(document.problems.empty());
  const std::vector<std::wstring> watch = Live(*document.policy, 4h);
  const std::vector<std::wstring> hour = Live(*document.policy, 1h);
  EXPECT_TRUE(std::ranges::includes(watch, hour));
}

}  // namespace
