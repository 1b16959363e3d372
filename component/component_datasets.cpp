#include "component/component_datasets.h"

#include <map>

#include "monitors/system/cpu_event_monitor.h"
#include "monitors/system/memory_event_monitor.h"
#include "monitors/system/memory_settings.h"
#include "monitors/system/system_bios_event_monitor.h"
#include "monitors/tvk_event_monitor.h"
#include "monitors/uncollected_monitor.h"

namespace {

// Datasets that are listed and started like every other, but for which this version collects nothing; the class name
// names the monitor's log.
const std::map<std::wstring, std::wstring>& UncollectedMonitors() {
  static const std::map<std::wstring, std::wstring> names = {
      {L"SystemPowerEvent", L"SystemPowerEventMonitor"},
      {L"NetworkEvent", L"NetworkEventMonitor"},
      {L"DeviceStatus", L"DeviceStatusMonitor"},
      {L"StorageEvent", L"StoreEventMonitor"},
      {L"AlexaEvent", L"AlexaEventMonitor"},
      {L"BatteryEvent", L"BatteryEventMonitor"},
      {L"EventViewerLogsEvent", L"WindowsLogsEventMonitor"},
      {L"PCIe_NVMe_SMARTEvent", L"PCIeNVMeSmartEventMonitor"},
      {L"SATA_SSD_SMARTEvent", L"SATASmartEventMonitor"},
      {L"SMARTEvent", L"SmartEventMonitor"},
      {L"DeviceProcessEvent", L"DeviceProcessEventMonitor"},
      {L"CrashEvent", L"CrashEventMonitor"},
      {L"USBPortEvent", L"USBEventMonitor"},
      {L"ThunderboltEvent", L"ThunderboltEventMonitor"},
      {L"EventViewerLogDBEvent", L"EventViewerLogDBEventMonitor"},
      {L"DeviceDriversEvent", L"DeviceDriversEventMonitor"},
      {L"PCIe_NVMe_SelfTestResult", L"PCIeNVMeSelfTestEventMonitor"},
      {L"SATA_SSD_SelfTestResult", L"SATASelfTestEventMonitor"},
      {L"VitalSignsEvent", L"VitalSignsEventMonitor"},
  };
  return names;
}

// What makes a dataset of this component more than a name.
struct Collector {
  MonitorFactory factory;
  SettingsReader read_settings;
  bool collects = true;
};

MonitorFactory UncollectedFactory(const std::wstring& dataset, const std::wstring& class_name) {
  return [dataset, class_name](SERVICE_STATUS_HANDLE handle, bool path_changed, const MonitorServices& services) {
    return std::make_unique<UncollectedMonitor>(handle, path_changed, services, dataset, class_name);
  };
}

/// The factory of a monitor that needs nothing but the services.
template <class Monitor>
MonitorFactory PlainFactory() {
  return [](SERVICE_STATUS_HANDLE handle, bool path_changed, const MonitorServices& services) {
    return std::make_unique<Monitor>(handle, path_changed, services);
  };
}

}  // namespace

DatasetTable MakeComponentDatasets(CPUInfo& cpu_info) {
  const std::map<std::wstring, Collector> collectors = {
      {CpuEventMonitor::dataset_name,
       {[&cpu_info](SERVICE_STATUS_HANDLE handle, bool path_changed, const MonitorServices& services) {
          return std::make_unique<CpuEventMonitor>(handle, path_changed, services, &cpu_info);
        },
        [](const SettingTexts& settings) { return ReadCpuSettings(settings).readings; }}},
      {SystemBiosEventMonitor::dataset_name, {PlainFactory<SystemBiosEventMonitor>(), {}}},
      {MemoryEventMonitor::dataset_name,
       {PlainFactory<MemoryEventMonitor>(),
        [](const SettingTexts& settings) { return ReadMemorySettings(settings).readings; }}},
      {L"TVKEvent", {PlainFactory<TVKEventMonitor>(), {}, false}},
  };
  std::vector<DatasetRow> rows = ComponentDatasets();
  for (DatasetRow& row : rows) {
    const auto collector = collectors.find(row.name);
    const auto uncollected = UncollectedMonitors().find(row.name);
    if (collector != collectors.end()) {
      row.factory = collector->second.factory;
      row.read_settings = collector->second.read_settings;
      row.collects = collector->second.collects;
    } else if (uncollected != UncollectedMonitors().end()) {
      row.factory = UncollectedFactory(uncollected->first, uncollected->second);
    }
  }
  return DatasetTable(std::move(rows));
}
