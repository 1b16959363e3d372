// docs/records.md beside the code: what it lists is what the records have, no less and no more.
#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>

#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "client/records/record_fields.h"
#include "client/text/string.h"
#include "component/component_datasets.h"
#include "platform/simulated/simulated_firmware.h"
#include "platform/simulated/simulated_memory.h"
#include "platform/simulated/simulated_processors.h"
#include "testing/manager_world.h"
#include "testing/smbios_builder.h"

namespace TVK {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only
using testing_support::MemoryArray;
using testing_support::MemoryDevice;
using testing_support::Table;
using Names = std::set<std::string>;

/// What is listed, by the section and the first heading of its tables: "CPUEvent/key".
using Lists = std::map<std::string, Names>;

std::string Utf8(std::wstring_view text) {
  return String::UTF16ToUTF8(std::wstring(text));
}

/// The names in the first cell of each row; with the cells behind it where the row tells of one thing alone.
Lists ReadPage() {
  std::ifstream file(TVK_DOCS_FOLDER "/records.md", std::ios::binary);
  Lists lists;
  std::string section;
  std::string table;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("## ")) section = line.substr(3);
    std::smatch row;
    static const std::regex kItem(R"(\| `([^`]+)` \| `([^`]+)` \|.*)");
    if (!line.starts_with('|')) {
      table.clear();
    } else if (table.empty()) {
      table = line.substr(2, line.find(" |", 1) - 2);
    } else if (table == "dataset" && line.find('`') != line.npos) {
      lists[section + "/dataset"].insert(std::regex_replace(line, std::regex("[ `]"), ""));
    } else if (table == "item" && std::regex_match(line, row, kItem)) {
      lists[section + "/item"].insert(row.format("$1 $2"));
    } else if (table == "field" || table == "key") {
      const std::string names = line.substr(0, line.find(" |", 1));
      static const std::regex kName("`([^`]+)`");
      for (std::sregex_iterator at(names.begin(), names.end(), kName), end; at != end; ++at)
        lists[section + '/' + table].insert((*at)[1]);
    }
  }
  return lists;
}

void AddKeys(const ItemData& data, Names& keys) {
  for (const auto& [key, value] : data) {
    keys.insert(Utf8(key));
    if (key != L"mem_slot_info") continue;
    Json::Value slots;
    std::istringstream(Utf8(value)) >> slots;
    for (const Json::Value& slot : slots) {
      for (const std::string& name : slot.getMemberNames())
        keys.insert(name);
    }
  }
}

/// Runs the service for some minutes and adds what it wrote.
void Live(MonitorWorld& world, Lists& lists) {
  const DatasetTable table = MakeComponentDatasets();
  ManagerLife life(world, table);
  life.Start();
  world.runtime.AdvanceBy(2min);
  world.machine.memory().Change([](auto& status) { status->load_percent += 20; });
  world.runtime.AdvanceBy(2min);
  life.manager.Stop();
  for (const DatasetContext& context : life.records.DatasetContexts())
    AddKeys(context.item_data(), lists[Utf8(context.dataset_name()) + "/key"]);
  for (const ItemEvent& item : life.records.Items()) {
    const std::string dataset = Utf8(item.dataset_name());
    AddKeys(item.item_data(), lists[dataset + "/key"]);
    lists[(item.item_name() == L"DeviceInit" ? "DeviceInit" : dataset) + "/item"].insert(
        Utf8(item.item_name() + L' ' + item.item_id()));
  }
}

TEST(RecordsPage, ListsWhatTheRecordsOfABusyMachineHave) {
  Lists lists;
  const auto add_fields = [&](const std::string& record, const auto& fields, Names more = {}) {
    for (const auto& field : fields)
      more.insert(field.key);
    lists[record + "/field"].merge(more);
  };
  add_fields("Item event", kItemEventFields, {"item_data"});
  add_fields("Dataset context", kDatasetContextFields, {"item_data"});
  add_fields("Device context", kDeviceContextFields, {"device_info", "region_info", "tvk_info"});
  add_fields("Device context", kDeviceInfoFields);
  add_fields("Device context", kRegionInfoFields);
  add_fields("Device context", kTvkInfoFields);

  MonitorWorld world;
  world.config.SetPolicy(PolicyOf(L"full"));
  for (const wchar_t* dataset : {L"CPUEvent", L"MemoryEvent"})
    world.config.SetSettings(dataset, {{L"ReadUsageInterval", L"1m"}});
  Table table;
  table.Add(MemoryArray()).Add(MemoryDevice());
  world.machine.processors().Change([](auto& state) { state.load = [] { return std::optional<std::int32_t>(100); }; });
  world.machine.firmware().SetSmbios(Table(table).End().Rsmb());
  Live(world, lists);
  world.machine.firmware().SetSmbios(table.Add(MemoryDevice({.handle = 0x1101})).End().Rsmb());
  Live(world, lists);

  for (const DatasetRow& row : kDatasetRows) {
    std::string scopes = Utf8(row.scopes);
    std::erase(scopes, ' ');
    const bool collected = lists.contains(Utf8(row.name) + "/key");
    const char* const state = row.rule == DatasetRule::kDeviceContext ? "record" : collected ? "yes" : "notyet";
    lists["Datasets/dataset"].insert('|' + Utf8(row.name) + '|' + Utf8(row.id) + '|' + scopes + '|' + state + '|');
  }
  // What no machine gives yet, and the page says so.
  lists["SystemBIOSEvent/key"].insert("ECReleaseDate");
  lists["MemoryEvent/item"].insert("Memory test B86E9BA0-5811-481C-9D14-F22BBF2E3579");
  EXPECT_EQ(ReadPage(), lists);
}

}  // namespace

}  // namespace TVK
