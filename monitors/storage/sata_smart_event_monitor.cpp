#include "monitors/storage/sata_smart_event_monitor.h"

namespace {

constexpr TVK::MonitorLines kLines = {
    .log_opened = L"%s: Log Intialize OK!",
    .context_decision = L"%s: LogDatasetContext bIsNeedNewDatasetContext is %s.",
    .context_failure = L"%s: LogDatasetContext LogDatasetContext() return error: %d",
    .init_failure = L"SATASmartEventMonitor LogDevInitEvent failed",
    .item_failure = {},
};

constexpr TVK::SmartMonitorTraits kTraits = {
    .stop_event = L"SATASmartEventMonitor_StopEvent",
    .bus_type = L"SATA-SSD",
    .item_without_context = L"%s: LogItemEvent SerialNumber can NOT be found in SmartDatasetContextIdMap!",
    .snapshot_without_context = L"%s SerialNumber can NOT be found in SmartDatasetContextIdMap!",
    .log_start =
        [](const TVK::Log& log, const std::wstring&, bool stopping, bool found) {
          log.d(L"SATASmartEventMonitor::StartMonitor,_bRequestStop=%d,foundStoreContextId=%d", stopping, found);
        },
};

}  // namespace

const std::map<std::wstring, std::wstring> SATASmartEventMonitor::ITEM_EVENT_CONTEXT = {
    {kPerSession, L"03563929-7472-43F3-9A00-B36C93700B53"},
    {kPerDay, L"14EBE5E9-22EE-41E4-B48D-32B156801429"},
};

SATASmartEventMonitor::SATASmartEventMonitor(const TVK::MonitorServices& monitor_services)
    : SmartMonitor(monitor_services, {kRow, ITEM_EVENT_CONTEXT, kLines}, kTraits,
                   TVK::ReportRule{.item = kPerDay,
                                   .report = [this] { LogItemEvent(); },
                                   .caller = L"SATASmartEventMonitor::StartMonitor"}) {}

bool SATASmartEventMonitor::Qualifies(const StorageCollector::HardDisk& drive) const {
  return drive.kind() == StorageCollector::DriveKind::kSataSsd;
}

SATASmartEventMonitor::AskedHealth SATASmartEventMonitor::AskHealth(const StorageCollector::HardDisk& drive) {
  return [this, asked = drive.AskAtaSmart()] {
    const auto reading = asked(stop_event());
    return reading.content ? info_.ToItemData(*reading.content) : std::nullopt;
  };
}

void SATASmartEventMonitor::Begin() {
  LogSnapshotEvent();
  ReportEvery(kDayMs);
}

void SATASmartEventMonitor::LogSnapshotEvent() {
  LogHealth(kPerSession, Operation(L"LogSnapshotEvent"), traits().snapshot_without_context);
}
