#include "component/component_datasets.h"

#include <map>

#include "framework/session_dataset.h"
#include "monitors/devices/battery_event_monitor.h"
#include "monitors/logs/crash_event_monitor.h"
#include "monitors/logs/event_viewer_log_db_event_monitor.h"
#include "monitors/logs/windows_logs_event_monitor.h"
#include "monitors/logs/windows_logs_settings.h"
#include "monitors/session/session_datasets.h"
#include "monitors/storage/pcie_nvme_smart_event_monitor.h"
#include "monitors/storage/sata_smart_event_monitor.h"
#include "monitors/storage/self_test_event_monitors.h"
#include "monitors/storage/smart_event_monitor.h"
#include "monitors/storage/store_event_monitor.h"
#include "monitors/storage/store_settings.h"
#include "monitors/system/cpu_event_monitor.h"
#include "monitors/system/cpu_settings.h"
#include "monitors/system/memory_event_monitor.h"
#include "monitors/system/memory_settings.h"
#include "monitors/system/system_bios_event_monitor.h"
#include "monitors/tvk_event_monitor.h"
#include "monitors/tvk_event_settings.h"
#include "monitors/uncollected_monitor.h"

namespace TVK {

namespace {

template <class Monitor>
std::unique_ptr<EventMonitorBase> Make(const MonitorServices& services) {
  return std::make_unique<Monitor>(services);
}

/// What makes a dataset of this component more than a name. Those that are not listed here are started and stopped
/// like every other, and say in their log that nothing is collected for them.
struct Collector {
  MonitorFactory factory;
  SettingsReader read_settings = {};
  bool collects = true;
};

const std::map<std::wstring_view, Collector>& Collectors() {
  static const std::map<std::wstring_view, Collector> collectors = {
      {L"StorageEvent",
       {Make<StoreEventMonitor>, [](const SettingTexts& settings) { return ReadStoreSettings(settings).readings; }}},
      {L"CPUEvent",
       {Make<CpuEventMonitor>, [](const SettingTexts& settings) { return ReadCpuSettings(settings).readings; }}},
      {L"SystemBIOSEvent", {Make<SystemBiosEventMonitor>}},
      {L"MemoryEvent",
       {Make<MemoryEventMonitor>, [](const SettingTexts& settings) { return ReadMemorySettings(settings).readings; }}},
      {L"PCIe_NVMe_SMARTEvent", {Make<PCIeNVMeSmartEventMonitor>}},
      {L"SATA_SSD_SMARTEvent", {Make<SATASmartEventMonitor>}},
      {L"SMARTEvent", {Make<SmartEventMonitor>}},
      {L"PCIe_NVMe_SelfTestResult",
       {Make<PCIeNVMeSelfTestEventMonitor>,
        [](const SettingTexts& settings) { return ReadNvmeSelfTestSettings(settings).readings; }}},
      {L"SATA_SSD_SelfTestResult",
       {Make<SATASelfTestEventMonitor>,
        [](const SettingTexts& settings) { return ReadSataSelfTestSettings(settings).readings; }}},
      {L"BatteryEvent",
       {Make<BatteryEventMonitor>,
        [](const SettingTexts& settings) { return ReadBatterySettings(settings).readings; }}},
      {L"EventViewerLogsEvent",
       {Make<WindowsLogsEventMonitor>,
        [](const SettingTexts& settings) { return ReadWindowsLogsSettings(settings).readings; }}},
      {L"CrashEvent", {Make<CrashEventMonitor>}},
      {L"EventViewerLogDBEvent", {Make<EventViewerLogDBEventMonitor>}},
      {L"TVKEvent",
       {Make<TVKEventMonitor>, [](const SettingTexts& settings) { return ReadTvkEventSettings(settings).readings; }}},
  };
  return collectors;
}

/// A dataset that the user agent observes.
Dataset FromSession(const DatasetRow& row, const std::map<std::wstring, std::wstring>& items,
                    const std::set<std::wstring>& keys) {
  const auto make = [&row, &items, &keys](const MonitorServices& services) {
    return std::make_unique<SessionDataset>(services, row, items, keys);
  };
  return {.row = row, .factory = make, .collects = true};
}

Dataset Join(const DatasetRow& row) {
  if (row.rule == DatasetRule::kDeviceContext) return {row};
  const auto found = Collectors().find(row.name);
  if (found != Collectors().end()) {
    return {row, found->second.factory, found->second.read_settings, found->second.collects};
  }
  return {row, [&row](const MonitorServices& services) { return std::make_unique<UncollectedMonitor>(services, row); }};
}

}  // namespace

DatasetTable MakeComponentDatasets() {
  std::vector<Dataset> datasets;
  for (const DatasetRow& row : kDatasetRows) {
    if (row.id == kDisplayRow.id) {
      datasets.push_back(FromSession(kDisplayRow, DisplayItems(), DisplayKeys()));
    } else {
      datasets.push_back(Join(row.id == kTvkEventRow.id ? kTvkEventRow : row));
    }
  }
  datasets.push_back(FromSession(kPenRow, PenItems(), PenKeys()));
  return DatasetTable(std::move(datasets));
}

const DatasetTable& ComponentDatasets() {
  static const DatasetTable table = MakeComponentDatasets();
  return table;
}

}  // namespace TVK
