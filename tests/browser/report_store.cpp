// Makes a store of twenty days with every kind of record, some of whose texts would like to be more than texts: usage
// report_store FOLDER. What comes of them in a browser is looked at by tests/browser/check.
#include <cmath>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "client/store/event_data_logging.h"
#include "platform/files.h"
#include "platform/local.h"
#include "platform/simulated/virtual_runtime.h"

namespace {

using std::chrono::hours;
using std::chrono::minutes;

constexpr wchar_t kScript[] = L"</style></title><script>document.title='owned'</script>";
constexpr wchar_t kImage[] = L"\"'><img src=x onerror=\"document.title='owned'\">";
constexpr wchar_t kTurn[] = L"\u202Eevil\u0007&amp;<b>";

std::wstring Ata(int raw, int normalized) {
  return L"{ \"raw\": \"" + std::to_wstring(raw) + L"\",\"normalized\": \"" + std::to_wstring(normalized) +
         L"\",\"threshold\": \"10\",\"worst\": \"9\"}";
}

/// A machine whose records are made up.
class Machine {
 public:
  Machine(TVK::EventDataLogging& store, platform::VirtualRuntime& world) : store_(store), world_(world) {}

  void Start() {
    DeviceContext device;
    device.set_device_context_id(L"D");
    device.device_info().set_device_manufacturer(L"Contoso");
    device.device_info().set_device_family(kTurn);
    device.device_info().set_device_name(kScript);
    device.device_info().set_os_name(L"Debian GNU/Linux");
    device.device_info().set_os_version(starts_ == 0 ? L"12" : L"13");
    device.region_info().set_country_name(L"Germany");
    Check(store_.LogDeviceContext(device));
    ++starts_;
    Context(L"CPUEvent", L"C", {{L"cpu_name", kImage}, {L"cpu_numofcores", L"8"}});
    Context(L"MemoryEvent", L"M",
            {{L"mem_slot_info", LR"([{"MemoryType":"DDR5","DeviceLocator":"<script>alert(1)</script>"}])"},
             {L"TotalPhysicalMemory", starts_ > 3 ? L"32768MB" : L"16384MB"}});
    Context(L"BatteryEvent", L"B", {{L"Id", L"BAT0"}, {L"DesignChargeCapacity", L"60000"}});
    Context(L"PCIe_NVMe_SMARTEvent", L"N", {{L"Model", kScript}, {L"SerialNumber", L"AB12"}});
    Context(L"SATA_SSD_SMARTEvent", L"S", {{L"Model", L"Fabrikam SSD"}, {L"SerialNumber", L"CD34"}});
    Context(L"SMARTEvent", L"G", {{L"Model", L"Fabrikam SSD"}, {L"SerialNumber", L"CD34"}});
    Context(L"StorageEvent", L"V",
            {{L"Kind", L"volume"}, {L"VolumeId", L"1"}, {L"VolumeRole", L"system"}, {L"FileSystem", L"ext4"}});
    Add(L"SystemBIOSEvent", L"ReadInfoPerBoot", L"", {{L"BIOSName", kImage}});
    Flush();
  }

  /// Half an hour of a machine that is in use.
  void Run(int step) {
    const double day = std::sin(step * 0.13);
    const auto number = [](double value) { return std::to_wstring(static_cast<int>(value)); };
    Add(L"CPUEvent", L"ReadUsagePerInterval", L"C", {{L"CPUUtilization", number(30 + 25 * day + step % 7)}});
    if (step % 2 == 0) {
      Add(L"MemoryEvent", L"MemoryUsagePerInterval", L"M",
          {{L"FreePhysicalMemory", number(9000 - 4000 * day) + L"MB"}, {L"VisibleMemory", L"16000MB"}});
      Add(L"BatteryEvent", L"BatteryUsagePerInterval", L"B",
          {{L"BatteryChargeRemaining", number(55 + 40 * std::sin(step * 0.4))},
           {L"FullChargeCapacity", number(54000 - 3 * step)}});
      Add(L"StorageEvent", L"ReadVolumePerInterval", L"V",
          {{L"FreeSpace", number(500000 - 200 * step)}, {L"Size", L"1000000"}});
    }
    if (step % 48 == 0) {
      Add(L"PCIe_NVMe_SMARTEvent", L"ReadSMARTPerDay", L"N",
          {{L"TemperatureC", number(41 + 6 * day)}, {L"PercentageUsed", number(3 + step / 300.0)}});
      Add(L"SATA_SSD_SMARTEvent", L"ReadSMARTPerDay", L"S",
          {{L"Temperature", Ata(0x190000 + 35 + step % 5, 65)}, {L"MediaWearoutIndicator", Ata(0, 91)}});
      Add(L"SMARTEvent", L"ReadSMARTPerDay", L"G", {{L"Temperature", Ata(36, 64)}});
    }
    if (step % 90 == 11) Add(L"CrashEvent", L"ApplicationCrash", L"", {{L"Program", kScript}});
    if (step % 17 == 3) Add(L"EventViewerLogsEvent", L"LoggedEvent", L"", {{L"EventData", kImage}});
    if (step % 200 == 150) Add(L"TVKEvent", kScript, L"", {{kImage, kTurn}});
    Flush();
    world_.AdvanceBy(minutes(30));
  }

  bool failed() const { return failed_; }

 private:
  void Check(int code) { failed_ = failed_ || code != 0; }

  void Context(const std::wstring& dataset, const std::wstring& id, ItemData facts) {
    DatasetContext context;
    context.set_dataset_context_id(id + std::to_wstring(starts_));
    context.set_dataset_id(dataset);
    context.set_dataset_name(dataset);
    context.set_device_context_id(L"D");
    context.set_item_data(std::move(facts));
    Check(store_.LogDatasetContext(context));
  }

  void Add(const std::wstring& dataset, const std::wstring& item, const std::wstring& context, ItemData data) {
    ItemEvent event;
    event.set_dataset_id(dataset);
    event.set_dataset_name(dataset);
    event.set_item_id(item);
    event.set_item_name(item);
    event.set_device_context_id(L"D");
    if (!context.empty()) event.set_dataset_context_id(context + std::to_wstring(starts_));
    event.set_item_data(std::move(data));
    events_.push_back({event, {}});
  }

  void Flush() {
    Check(store_.LogItemEvents(events_));
    events_.clear();
  }

  TVK::EventDataLogging& store_;
  platform::VirtualRuntime& world_;
  std::vector<TVK::ItemEventWithState> events_;
  int starts_ = 0;
  bool failed_ = false;
};

}  // namespace

int main(int count, char** values) {
  if (count != 2) return 2;
  const std::filesystem::path folder = platform::PathFromUtf8(values[1]);
  std::filesystem::create_directories(folder);
  platform::VirtualRuntimeOptions options;
  options.start = platform::MakeRealRuntime({})->clock().Now() - hours(20 * 24);
  platform::VirtualRuntime world(options);
  TVK::EventDataLogging store({.file = folder / TVK::kStoreFileName, .limits = {}}, world.clock());
  Machine machine(store, world);
  int step = 0;
  for (const int days : {5, 4, 6, 3}) {
    machine.Start();
    for (int left = days * 48; left > 0; --left, ++step)
      machine.Run(step);
    world.AdvanceBy(hours(11));
  }
  if (!machine.failed()) return 0;
  std::cerr << "report_store: the store did not take every record\n";
  return 3;
}
