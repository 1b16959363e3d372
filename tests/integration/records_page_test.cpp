// docs/records.md and docs/policy.md beside the code: they list what the records have and what the monitors read, of
// every dataset that collects, no less and no more.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <numeric>
#include <regex>
#include <set>
#include <sstream>

#include "client/battery/battery_item_data.h"
#include "client/records/record_fields.h"
#include "client/text/string.h"
#include "component/component_datasets.h"
#include "framework/dataset_monitor.h"
#include "monitors/session/display_facts.h"
#include "monitors/session/display_user_agent.h"
#include "monitors/session/pen_event_monitor.h"
#include "monitors/storage/smart_names.h"
#include "platform/simulated/simulated_batteries.h"
#include "platform/simulated/simulated_desktop.h"
#include "platform/simulated/simulated_drives.h"
#include "platform/simulated/simulated_event_log.h"
#include "platform/simulated/simulated_firmware.h"
#include "platform/simulated/simulated_memory.h"
#include "platform/simulated/simulated_processors.h"
#include "platform/simulated/simulated_volumes.h"
#include "platform/system_event.h"
#include "testing/drive_sectors.h"
#include "testing/manager_world.h"
#include "testing/smbios_builder.h"
#include "testing/source_tree.h"

namespace TVK {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only
using testing_support::MemoryArray;
using testing_support::MemoryDevice;
using testing_support::Table;
using Names = std::set<std::string>;

/// What is listed, by the section of records.md and the first heading of its tables: "CPUEvent/key". The settings that
/// policy.md lists of the dataset are "CPUEvent/setting".
using Lists = std::map<std::string, Names>;

std::string Utf8(std::wstring_view text) {
  return String::UTF16ToUTF8(std::wstring(text));
}

/// The names in the first cell of each row; with the cells behind it where the row tells of one thing alone.
Lists ReadPage() {
  std::ifstream file(FromSourceTree("docs/records.md"), std::ios::binary);
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

/// Each key with its default, which a colon ends that explains it; the dataset stands in the first of its rows.
void ReadSettings(Lists& lists) {
  std::ifstream file(FromSourceTree("docs/policy.md"), std::ios::binary);
  std::string dataset;
  for (std::string line; std::getline(file, line);) {
    std::smatch row;
    static const std::regex kSetting(R"(\| (\w*) ?\| `(\w+)` \|.*\| ([^:|]+)(:[^|]*)? \| [^|]* \|)");
    if (!std::regex_match(line, row, kSetting)) continue;
    if (row.length(1) != 0) dataset = row[1];
    lists[dataset + "/setting"].insert(row.format("$2 $3"));
  }
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

/// Adds what the datasets say of themselves, and gives each of them every interval that it reads.
void AddDatasets(MonitorWorld& world, const DatasetTable& table, Lists& lists) {
  ServiceLife life(world);
  for (const auto& [row, make, read_settings, collects] : table.datasets()) {
    const std::string name = Utf8(row.name);
    std::string scopes = Utf8(row.scopes);
    std::erase(scopes, ' ');
    const char* const state = row.rule == DatasetRule::kDeviceContext ? "record" : collects ? "yes" : "notyet";
    lists["Datasets/dataset"].insert('|' + name + '|' + Utf8(row.id) + '|' + scopes + '|' + state + '|');
    SettingTexts intervals;
    for (const SettingReading& setting : read_settings ? read_settings({}) : std::vector<SettingReading>()) {
      lists[name + "/setting"].insert(Utf8(setting.key + L' ' + setting.value_in_force));
      EXPECT_FALSE(setting.mistake) << name << ": a key that is missing";
      // No drive is tested more often than once a day.
      if (setting.key.ends_with(L"Interval"))
        intervals[setting.key] = setting.key == L"RunSelfTestInterval" ? L"1d" : L"1m";
    }
    world.config.SetSettings(std::wstring(row.name), intervals);
    if (!collects) continue;
    const auto monitor = make(life.services());
    const auto* const collector = dynamic_cast<const DatasetMonitor*>(monitor.get());
    ASSERT_NE(collector, nullptr) << name;
    for (const auto& [item, id] : collector->identity().items)
      lists[name + "/item"].insert(Utf8(item + L' ' + id));
  }
}

/// The machine is unplugged until its battery is near empty, and plugged in until it is near full.
void UseBattery(MonitorWorld& world, TestManager& manager) {
  using platform::ChargeState;
  const auto change = [&](platform::PowerSource source, std::uint32_t percent, ChargeState state) {
    world.machine.batteries().Change([&](auto& batteries) {
      batteries.front().percent = percent;
      batteries.front().state = state;
      batteries.front().manufactured = std::chrono::year(2024) / 5 / 31;
      batteries.front().remaining_time = 1h;
    });
    manager.OnSystemEvent(source);
    manager.OnSystemEvent(platform::BatteryPercent{percent});
    world.runtime.AdvanceBy(1min);
  };
  change(platform::PowerSource::kBattery, 5, ChargeState::kDischarging);
  change(platform::PowerSource::kAc, 95, ChargeState::kCharging);
}

/// What the maker's power software tells beside it.
BatteryInfo MakersBattery() {
  BatteryInfo battery;
  battery.set_batteryFirstUseDate(L"2024-06-01");
  battery.set_batteryHwid(L"1");
  battery.set_batteryFwVersion(L"1");
  battery.set_batteryWarranty(L"1");
  battery.set_batteryValidWarranty(L"true");
  battery.set_batteryTotalChargedCapacity(L"1");
  battery.set_batteryTotalBatteryAwakeHrs(L"1");
  battery.set_batteryHoursAtFullCharge(L"1");
  battery.set_batteryHoursAtHighTemp(L"1");
  battery.set_batteryHoursAtFullChargeAndHighTemp(L"1");
  battery.set_batteryCondition(L"Normal");
  return battery;
}

/// More events than are recorded in a minute, of more kinds than are counted a day, and some that are overwritten.
void LogEvents(MonitorWorld& world, const wchar_t* levels) {
  world.config.SetSettings(L"EventViewerLogsEvent", {{L"LogLevels", levels}, {L"EventIds", L"1-500"}});
  platform::SimulatedEventLog& log = world.machine.event_log();
  for (std::uint32_t id = 1; id <= 500; ++id) {
    log.Append({.channel = "System",
                .provider = "Contoso",
                .id = id,
                .level = id % 7,
                .time = world.runtime.clock().Now(),
                .process = 1,
                .thread = 1});
  }
  log.DropOldest("System", 250);
  const auto crash = [&](const char* channel, const char* provider, std::uint32_t id, const char* name) {
    log.Append({.channel = channel,
                .provider = provider,
                .id = id,
                .level = 2,
                .time = world.runtime.clock().Now(),
                .data = std::vector<platform::EventDataField>(7, {.name = name, .value = "1"})});
  };
  crash("Application", "Application Error", 1000, "");
  crash("Application", "Application Hang", 1002, "");
  crash("System", "Microsoft-Windows-Kernel-Power", 41, "BugcheckCode");
  crash("System", "Microsoft-Windows-WHEA-Logger", 18, "ErrorSource");
  crash("System", "Microsoft-Windows-WHEA-Logger", 18, "ErrorType");
}

/// Runs the service for some minutes and adds the keys of what it wrote; the items that it wrote go out of `unwritten`.
void Live(MonitorWorld& world, const DatasetTable& table, Lists& lists, Names& unwritten) {
  ManagerLife life(world, table);
  life.Start();
  world.runtime.AdvanceBy(2min);
  world.machine.memory().Change([](auto& status) { status->load_percent += 20; });
  world.machine.volumes().Change([](auto& volumes) {
    volumes.front().space->free_bytes /= 1000;
    ++*volumes.front().errors;
  });
  UseBattery(world, life.manager);
  world.runtime.AdvanceBy(2min);
  world.runtime.Suspend(24h);
  world.runtime.AdvanceBy(5min);
  life.manager.Stop();
  for (const DatasetContext& context : life.records.DatasetContexts())
    AddKeys(context.item_data(), lists[Utf8(context.dataset_name()) + "/key"]);
  for (const ItemEvent& item : life.records.Items()) {
    AddKeys(item.item_data(), lists[Utf8(item.dataset_name()) + "/key"]);
    unwritten.erase(Utf8(item.item_name() + L' ' + item.item_id()));
  }
}

/// Lists what the user agent gives to the service.
class ListingRecorder final : public SessionRecorder {
 public:
  ListingRecorder(Lists& lists, Names& unwritten) : lists_(lists), unwritten_(unwritten) {}

  int LogDatasetContext(const std::wstring& dataset_id, const std::vector<ObservedDevice>& devices,
                        bool /*new_context_needed*/) override {
    for (const ObservedDevice& device : devices)
      AddKeys(device.facts, lists_[NameOf(dataset_id) + "/key"]);
    return 0;
  }
  int LogDevInitEvent(const std::wstring& /*dataset_id*/) override { return 0; }
  int WriteItem(const std::wstring& dataset_id, const std::wstring& item_name, const ItemData& data,
                const std::wstring& /*device_key*/) override {
    AddKeys(data, lists_[NameOf(dataset_id) + "/key"]);
    const auto& items = dataset_id == kPenRow.id ? PenItems() : DisplayItems();
    unwritten_.erase(Utf8(item_name + L' ' + items.at(item_name)));
    return 0;
  }

 private:
  static std::string NameOf(const std::wstring& id) { return Utf8(id == kPenRow.id ? kPenRow.name : kDisplayRow.name); }

  Lists& lists_;
  Names& unwritten_;
};

/// A display that tells everything of itself changes, and is touched.
void UseSession(Lists& lists, Names& unwritten) {
  platform::VirtualRuntime runtime;
  platform::SimulatedDesktop desktop(runtime);
  ListingRecorder recorder(lists, unwritten);
  SessionWriter writer(runtime);
  DisplayUserAgent displays(runtime, desktop, recorder, writer);
  PenEventMonitor pen(runtime, desktop, recorder, writer);
  std::vector<std::uint8_t> edid(128);
  std::fill(edid.begin() + 1, edid.begin() + 7, std::uint8_t{0xFF});
  edid[8] = 0x10;
  edid[9] = 0xAC;
  edid[12] = edid[17] = 1;
  edid[0x36 + 3] = 0xFC;
  edid[0x36 + 5] = 'X';
  edid[127] = static_cast<std::uint8_t>(-std::accumulate(edid.begin(), edid.end(), 0));
  desktop.Change([&](auto& session) {
    session.displays.front().edid = edid;
    session.digitizers = {.pen = true, .touch = true, .touch_contacts = 10};
    session.input = platform::DigitizerKind::kPen;
  });
  displays.LogDatasetContext(true);
  runtime.Settle();
  displays.ResolutionChange(32, 1);
  const auto tell = [&](std::initializer_list<std::uint8_t> guid, std::uint8_t value) {
    desktop.Change([&](auto& session) {
      session.message_data = guid;
      session.message_data.insert(session.message_data.end(), {4, 0, 0, 0, value, 0, 0, 0});
    });
    displays.PowerEventCallBack(platform::kPowerSettingChange, 1);
  };
  for (const std::uint8_t value : {std::uint8_t{1}, std::uint8_t{2}}) {
    tell({0x56, 0x95, 0xE6, 0x6F, 0x4A, 0x70, 0xA0, 0x47, 0x8F, 0x24, 0xC2, 0x8D, 0x93, 0x6F, 0xDA, 0x47}, value);
    tell({0xC6, 0xE2, 0xFE, 0x8F, 0x01, 0x2D, 0xB5, 0x46, 0xAD, 0xB9, 0x39, 0x8A, 0xDD, 0xC5, 0xB4, 0xFF}, value);
  }
  pen.Register(nullptr);
  pen.OnInput(nullptr, 0, 0);
  runtime.AdvanceBy(1h);
}

/// An NVMe drive and a SATA drive whose self-tests end at once; an attribute of the second is at its threshold.
std::vector<platform::SimulatedDrive> TestedDrives() {
  using platform::DriveAnswer;
  using platform::DrivePage;
  using testing_support::PutLittleEndian;
  using testing_support::Sector;
  const auto tests = std::make_shared<std::atomic<std::uint8_t>>();
  const auto take = [tests](platform::DriveAction) { return ++*tests, DriveAnswer(); };
  const auto answer = [tests](DrivePage page) -> DriveAnswer {
    Sector controller(4096);
    PutLittleEndian(controller, 256, 0x10, 2);
    Sector nvme_log(564);
    PutLittleEndian(nvme_log, 4, 0x10, 1);
    PutLittleEndian(nvme_log, 8, *tests, 1);
    Sector ata_log(512);
    if (*tests != 0) PutLittleEndian(ata_log, 2 + (*tests - 1) * 24, 1, 1);
    PutLittleEndian(ata_log, 508, *tests, 1);
    const std::map<DrivePage, Sector> pages = {
        {DrivePage::kNvmeController, controller},
        {DrivePage::kNvmeHealth, testing_support::NvmeHealthPage()},
        {DrivePage::kNvmeSelfTestLog, nvme_log},
        {DrivePage::kAtaIdentify, testing_support::AtaIdentify()},
        {DrivePage::kAtaSmartValues, testing_support::AtaValues({{5, 10, 10, 99}})},
        {DrivePage::kAtaSmartThresholds, testing_support::AtaThresholds({{5, 10}})},
        {DrivePage::kAtaSelfTestLog, testing_support::WithChecksum(ata_log)}};
    return {.bytes = pages.at(page)};
  };
  return {{.listing = {.path = "/dev/nvme0n1",
                       .bus = platform::DriveBus::kNvme,
                       .model = "Nvme",
                       .firmware_version = "1",
                       .serial_number = "A",
                       .bytes = 1 << 30},
           .read = answer,
           .act = take},
          {.listing = {.path = "/dev/sda", .bus = platform::DriveBus::kAta, .rotating = false},
           .read = answer,
           .act = take}};
}

TEST(Pages, ListWhatEveryDatasetWritesAndReads) {
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
  const DatasetTable datasets = MakeComponentDatasets();
  AddDatasets(world, datasets, lists);
  lists["DeviceInit/item"] = {"DeviceInit " + Utf8(EventMonitorBase::DeviceInitItemId)};
  Names unwritten;
  for (const auto& [list, names] : lists) {
    if (list.ends_with("/item")) unwritten.insert(names.begin(), names.end());
  }
  Table table;
  table.Add(MemoryArray()).Add(MemoryDevice());
  world.machine.processors().Change([](auto& state) { state.load = [] { return std::optional<std::int32_t>(100); }; });
  world.machine.firmware().SetSmbios(Table(table).End().Rsmb());
  world.machine.drives().Set(TestedDrives());
  world.machine.memory().errors.Set({{"mc0", 1, 1}});
  LogEvents(world, L"00011111");
  Live(world, datasets, lists, unwritten);
  for (int i = 0; i < 2; ++i)
    LogEvents(world, L"00000000");
  world.machine.firmware().SetSmbios(table.Add(MemoryDevice({.handle = 0x1101})).End().Rsmb());
  Live(world, datasets, lists, unwritten);

  UseSession(lists, unwritten);
  for (const auto& [dataset, keys] : {std::pair("DisplayEvent/key", &DisplayKeys()), {"PenEvent/key", &PenKeys()}}) {
    Names known;
    std::ranges::transform(*keys, std::inserter(known, known.end()), Utf8);
    EXPECT_EQ(lists[dataset], known) << "the service takes what is observed, and nothing else";
  }
  // One machine has no drives with all of them.
  for (const auto& [dataset, names] :
       {std::pair("SATA_SSD_SMARTEvent/key", &kSataSmartNames), {"SMARTEvent/key", &kGenericSmartNames}}) {
    for (const std::wstring_view name : *names) {
      if (!name.empty()) lists[dataset].insert(Utf8(name));
    }
  }
  // What no machine gives yet, and the page says so.
  lists["SystemBIOSEvent/key"].insert("ECReleaseDate");
  lists["EventViewerLogsEvent/key"].merge(Names{"ProviderGuid", "TaskCategory", "Opcode"});
  AddKeys(BatteryContextItemData(MakersBattery()), lists["BatteryEvent/key"]);
  AddKeys(BatteryItemData(MakersBattery()), lists["BatteryEvent/key"]);
  // Observed by a program of the user's session, whose tests look at their keys.
  for (const char* const dataset : {"DisplayEvent/item", "PenEvent/item"})
    std::erase_if(unwritten, [&](const std::string& item) { return lists[dataset].contains(item); });
  EXPECT_EQ(unwritten, (Names{"BatteryTest 00000000-0000-0000-0000-000000000000",
                              "Memory test B86E9BA0-5811-481C-9D14-F22BBF2E3579"}))
      << "nobody looks at the keys of an item that this machine does not cause";
  Lists pages = ReadPage();
  ReadSettings(pages);
  for (const auto& [list, names] : lists)
    pages.try_emplace(list);
  for (const auto& [list, names] : pages)
    EXPECT_THAT(names, testing::ContainerEq(lists[list])) << list;
}

}  // namespace

}  // namespace TVK
