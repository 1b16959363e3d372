// docs/records.md beside the code: what it lists is what the records have, no less and no more.
#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>

#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <span>
#include <sstream>

#include "client/records/record_fields.h"
#include "client/text/string.h"
#include "component/component_datasets.h"
#include "monitors/system/cpu_event_monitor.h"
#include "monitors/system/memory_event_monitor.h"
#include "monitors/system/system_bios_event_monitor.h"
#include "platform/simulated/simulated_firmware.h"
#include "platform/simulated/simulated_memory.h"
#include "platform/simulated/simulated_processors.h"
#include "testing/manager_world.h"
#include "testing/smbios_builder.h"

namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only
using TVK::String;
using Names = std::set<std::string>;

/// A row of one of the page's tables; cells without their outer blanks.
struct PageRow {
  std::string section;  ///< The heading above, without "## ".
  std::string table;    ///< The first column's heading.
  std::vector<std::string> cells;
};

std::vector<std::string> Cells(const std::string& line) {
  std::vector<std::string> cells;
  std::istringstream text(line.substr(1));
  for (std::string cell; std::getline(text, cell, '|');) {
    cell.erase(0, cell.find_first_not_of(' '));
    cell.erase(cell.find_last_not_of(' ') + 1);
    cells.push_back(cell);
  }
  return cells;
}

std::vector<PageRow> ReadPage() {
  std::ifstream file(TVK_DOCS_FOLDER "/records.md", std::ios::binary);
  std::vector<PageRow> rows;
  std::string section;
  std::string table;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("## ")) section = line.substr(3);
    if (!line.starts_with('|')) {
      table.clear();
    } else if (table.empty()) {
      table = Cells(line).at(0);
    } else if (!line.starts_with("|---")) {
      rows.push_back({section, table, Cells(line)});
    }
  }
  return rows;
}

/// The names in `backticks`.
Names Quoted(const std::string& cell) {
  Names names;
  static const std::regex kQuoted("`([^`]*)`");
  for (std::sregex_iterator at(cell.begin(), cell.end(), kQuoted), end; at != end; ++at)
    names.insert((*at)[1]);
  return names;
}

/// The names in the first column of the section's tables of this heading.
Names Listed(const std::string& section, const std::string& table) {
  Names names;
  for (const PageRow& row : ReadPage()) {
    if (row.table == table && row.section == section) names.merge(Quoted(row.cells[0]));
  }
  return names;
}

template <typename Record>
void AddFields(Names& names, std::span<const TVK::TextField<Record>> fields) {
  for (const TVK::TextField<Record>& field : fields)
    names.insert(field.key);
}

TEST(RecordsPage, ListsTheFieldsOfEachRecord) {
  Names item = {"item_data"};
  AddFields<ItemEvent>(item, TVK::kItemEventFields);
  EXPECT_EQ(Listed("Item event", "field"), item);

  Names dataset = {"item_data"};
  AddFields<DatasetContext>(dataset, TVK::kDatasetContextFields);
  EXPECT_EQ(Listed("Dataset context", "field"), dataset);

  Names device = {"device_info", "region_info", "tvk_info"};
  AddFields<DeviceContext>(device, TVK::kDeviceContextFields);
  AddFields<DeviceInfo>(device, TVK::kDeviceInfoFields);
  AddFields<RegionInfo>(device, TVK::kRegionInfoFields);
  AddFields<TVKInfo>(device, TVK::kTvkInfoFields);
  EXPECT_EQ(Listed("Device context", "field"), device);
}

TEST(RecordsPage, ListsTheDatasetsWithTheirScopesAndTheItemsWithTheirIds) {
  Names datasets;
  for (const DatasetRow& row : kDatasetRows) {
    std::string scopes = String::UTF16ToUTF8(std::wstring(row.scopes));
    std::erase(scopes, ' ');
    datasets.insert(String::UTF16ToUTF8(std::wstring(row.name) + L' ' + std::wstring(row.id)) + ' ' + scopes);
  }
  Names items = {"DeviceInit " + String::UTF16ToUTF8(EventMonitorBase::DeviceInitItemId)};
  for (const auto* monitor_items : {&CpuEventMonitor::ITEM_EVENT_CONTEXT, &MemoryEventMonitor::ITEM_EVENT_CONTEXT,
                                    &SystemBiosEventMonitor::ITEM_EVENT_CONTEXT}) {
    for (const auto& [name, id] : *monitor_items)
      items.insert(String::UTF16ToUTF8(name + L' ' + id));
  }
  Names listed_datasets;
  Names listed_items;
  for (const PageRow& row : ReadPage()) {
    if (row.table != "dataset" && row.table != "item") continue;
    const std::string name_and_id = *Quoted(row.cells[0]).begin() + ' ' + *Quoted(row.cells.at(1)).begin();
    if (row.table == "item") listed_items.insert(name_and_id);
    std::string scopes = row.cells.at(2);
    std::erase(scopes, ' ');
    if (row.table == "dataset") listed_datasets.insert(name_and_id + ' ' + scopes);
  }
  EXPECT_EQ(listed_datasets, datasets);
  EXPECT_EQ(listed_items, items);
}

/// What the records of some lives of the service held, by dataset.
struct Written {
  std::map<std::string, Names> keys;  ///< Of item data, those inside of mem_slot_info too.
  std::map<std::string, Names> items;
};

void AddKeys(const ItemData& data, Names& keys) {
  for (const auto& [key, value] : data) {
    keys.insert(String::UTF16ToUTF8(key));
    if (key != L"mem_slot_info") continue;
    Json::Value slots;
    std::istringstream(String::UTF16ToUTF8(value)) >> slots;
    for (const Json::Value& slot : slots) {
      for (const std::string& name : slot.getMemberNames())
        keys.insert(name);
    }
  }
}

/// Runs the service for some minutes and adds what it wrote.
void Live(MonitorWorld& world, Written& written) {
  const DatasetTable table = MakeComponentDatasets();
  ManagerLife life(world, table);
  life.Start();
  world.runtime.AdvanceBy(2min);
  world.machine.memory().Change([](auto& status) { status->load_percent += 20; });
  world.runtime.AdvanceBy(2min);
  life.manager.Stop();
  for (const DatasetContext& context : life.service.DatasetContexts())
    AddKeys(context.item_data(), written.keys[String::UTF16ToUTF8(context.dataset_name())]);
  for (const ItemEvent& item : life.service.Items()) {
    const std::string dataset = String::UTF16ToUTF8(item.dataset_name());
    AddKeys(item.item_data(), written.keys[dataset]);
    written.items[dataset].insert(String::UTF16ToUTF8(item.item_name()));
  }
}

TEST(RecordsPage, ListsTheKeysAndItemsThatABusyMachineGives) {
  using testing_support::MemoryArray;
  using testing_support::MemoryDevice;
  using testing_support::Table;
  MonitorWorld world;
  world.config.SetPolicy(PolicyOf(L"full"));
  for (const wchar_t* dataset : {L"CPUEvent", L"MemoryEvent"})
    world.config.SetSettings(dataset, {{L"ReadUsageInterval", L"1m"}});
  Table table;
  table.Add(MemoryArray()).Add(MemoryDevice());
  world.machine.processors().Change([](auto& state) { state.load = [] { return std::optional<std::int32_t>(100); }; });
  world.machine.firmware().SetSmbios(Table(table).End().Rsmb());
  Written written;
  Live(world, written);
  world.machine.firmware().SetSmbios(table.Add(MemoryDevice({.handle = 0x1101})).End().Rsmb());
  Live(world, written);

  Names datasets;
  for (const auto& [dataset, keys] : written.keys)
    datasets.insert(dataset);
  EXPECT_EQ(datasets, (Names{"CPUEvent", "MemoryEvent", "SystemBIOSEvent"}));
  Names collected;
  for (const PageRow& row : ReadPage()) {
    if (row.table == "dataset" && row.cells.at(3) == "yes") collected.merge(Quoted(row.cells[0]));
  }
  EXPECT_EQ(collected, datasets);

  // What no machine gives yet, and the page says so.
  written.keys["SystemBIOSEvent"].insert("ECReleaseDate");
  written.items["MemoryEvent"].insert("Memory test");
  for (const std::string& dataset : datasets) {
    SCOPED_TRACE(dataset);
    EXPECT_EQ(Listed(dataset, "key"), written.keys[dataset]);
    EXPECT_EQ(written.items[dataset].erase("DeviceInit"), 1u);
    EXPECT_EQ(Listed(dataset, "item"), written.items[dataset]);
  }
}

}  // namespace
