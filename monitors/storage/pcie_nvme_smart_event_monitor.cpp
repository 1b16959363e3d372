#include "monitors/storage/pcie_nvme_smart_event_monitor.h"

#include "monitors/storage/pcie_nvme_smart_info.h"

namespace {

constexpr TVK::MonitorLines kLines = {
    .log_opened = L"%s: Log Intialize OK!",
    .context_decision = L"%s: bIsNeedNewDatasetContext is %s.",
    .context_failure = L"%s: Return error: %d",
    .init_failure = L"PCIeNVMeSmartEventMonitor LogDevInitEvent failed",
    .item_failure = {},
};

constexpr TVK::MonitorLine kWithoutContext = L"%s: SerialNumber can NOT be found in SmartDatasetContextIdMap!";

constexpr TVK::SmartMonitorTraits kTraits = {
    .stop_event = L"PCIeNVMeEventMonitor_StopEvent",
    .bus_type = L"PCIe-NVMe",
    .item_without_context = kWithoutContext,
    .snapshot_without_context = kWithoutContext,
    .log_start = [](const TVK::Log& log, const std::wstring& caller, bool stopping,
                    bool found) { log.d(L"%s: _bRequestStop=%d, foundStoreContextId=%d", caller, stopping, found); },
};

}  // namespace

const std::map<std::wstring, std::wstring> PCIeNVMeSmartEventMonitor::ITEM_EVENT_CONTEXT = {
    {kPerSession, L"F874FBB1-B48F-4084-8AA1-BA46FB391EF3"},
    {kPerDay, L"67DCE9A6-B244-427B-B88B-B351B9D40C98"},
};

PCIeNVMeSmartEventMonitor::PCIeNVMeSmartEventMonitor(const TVK::MonitorServices& monitor_services)
    : SmartMonitor(monitor_services, {kRow, ITEM_EVENT_CONTEXT, kLines}, kTraits,
                   TVK::ReportRule{.item = kPerDay,
                                   .report = [this] { LogItemEvent(); },
                                   .caller = L"PCIeNVMeSmartEventMonitor::StartMonitor"}) {}

bool PCIeNVMeSmartEventMonitor::Qualifies(const StorageCollector::HardDisk& drive) const {
  return drive.kind() == StorageCollector::DriveKind::kNvme;
}

PCIeNVMeSmartEventMonitor::AskedHealth PCIeNVMeSmartEventMonitor::AskHealth(const StorageCollector::HardDisk& drive) {
  return [this, asked = drive.AskNvmeHealth()]() -> std::optional<ItemData> {
    PCIeNVMeSmartInfo info(log_);
    const auto read = [&](TVK::NvmeHealth& health) {
      const auto reading = asked(stop_event());
      if (!reading.content && reading.error != 0) return static_cast<int>(reading.error);
      if (!reading.content) return PCIeNVMeSmartInfo::kErrorNotRead;
      health = *reading.content;
      return 0;
    };
    ItemData data;
    if (info.ReadSMARTInfo(read) != 0 || info.GetSmartInfoList(data) != 0) return std::nullopt;
    return data;
  };
}

void PCIeNVMeSmartEventMonitor::Begin() {
  LogSnapshotEvent();
  ReportEvery(kDayMs);
}

void PCIeNVMeSmartEventMonitor::LogSnapshotEvent() {
  LogHealth(kPerSession, Operation(L"LogSnapshotEvent"), traits().snapshot_without_context);
}
