#include "monitors/storage/self_test_event_monitors.h"

namespace {

// Both datasets have one item, under one id.
constexpr wchar_t kResultId[] = L"3BEF1451-12F5-40AF-A717-5636223437C6";

constexpr TVK::MonitorLines kNvmeLines = {
    .log_opened = L"PCIeNVMeSelfTestEventMonitor Log Intialize OK!",
    .context_decision = L"PCIeNVMeSelfTestEventMonitor LogDatasetContext bIsNeedNewDatasetContext is %s.",
    .context_failure = L"PCIeNVMeSelfTestEventMonitor LogDatasetContext LogDatasetContext() return error: %d",
    .init_failure = {},
    .item_failure = L"PCIeNVMeSelfTestEventMonitor LogItemEvent(%s) return error: %d",
};

constexpr TVK::MonitorLines kSataLines = {
    .log_opened = L"SATASelfTestEventMonitor Log Intialize OK!",
    .context_decision = L"SATASelfTestEventMonitor LogDatasetContext bIsNeedNewDatasetContext is %s.",
    .context_failure = L"SATASelfTestEventMonitor LogDatasetContext LogDatasetContext() return error: %d",
    .init_failure = {},
    .item_failure = L"SATASelfTestEventMonitor LogItemEvent(%s) return error: %d",
};

constexpr TVK::SelfTestMonitorTraits kNvmeTraits = {
    .kind = StorageCollector::DriveKind::kNvme,
    .smart_row = TVK::DatasetRowNamed(L"PCIe_NVMe_SMARTEvent"),
    .smart_context_key = L"PCIe_NVMe_SMARTEvent_dataset_context_id",
    .bus_type = L"PCIe-NVMe",
    .event_failure = L"PCIeNVMeSelfTestEventMonitor StartMonitor CreateEvent() return error %d!",
    .described = L"PCIeNVMeSelfTestEventMonitor LogDatasetContext Model:\"%s\", Hashed SerialNumber:\"%s\"",
    .read_settings = TVK::ReadNvmeSelfTestSettings,
    .log_start =
        [](const TVK::Log& log, bool stopping, bool found) {
          log.d(L"PCIeNVMeSelfTestEventMonitor::StartMonitor,_bRequestStop=%d,foundStoreContextId=%d", stopping, found);
        },
};

constexpr TVK::SelfTestMonitorTraits kSataTraits = {
    .kind = StorageCollector::DriveKind::kSataSsd,
    .smart_row = TVK::DatasetRowNamed(L"SATA_SSD_SMARTEvent"),
    .smart_context_key = L"SATA_SSD_SMARTEvent_dataset_context_id",
    .bus_type = L"SATA-SSD",
    .event_failure = L"SATASelfTestEventMonitor StartMonitor CreateEvent() return error %d!",
    .described = L"SATASelfTestEventMonitor LogDatasetContext Model:\"%s\", Hashed SerialNumber:\"%s\"",
    .read_settings = TVK::ReadSataSelfTestSettings,
    .log_start =
        [](const TVK::Log& log, bool stopping, bool found) {
          log.d(L"SATASelfTestEventMonitor::StartMonitor,_bRequestStop=%d,foundStoreContextId=%d", stopping, found);
        },
};

}  // namespace

const std::map<std::wstring, std::wstring> PCIeNVMeSelfTestEventMonitor::ITEM_EVENT_CONTEXT = {{kResult, kResultId}};

PCIeNVMeSelfTestEventMonitor::PCIeNVMeSelfTestEventMonitor(const TVK::MonitorServices& monitor_services)
    : SelfTestMonitor(monitor_services, {kRow, ITEM_EVENT_CONTEXT, kNvmeLines}, kNvmeTraits,
                      L"PCIeNVMeSelfTestEventMonitor::ReadAndUpdateDatasetSettings") {}

const std::map<std::wstring, std::wstring> SATASelfTestEventMonitor::ITEM_EVENT_CONTEXT = {{kResult, kResultId}};

SATASelfTestEventMonitor::SATASelfTestEventMonitor(const TVK::MonitorServices& monitor_services)
    : SelfTestMonitor(monitor_services, {kRow, ITEM_EVENT_CONTEXT, kSataLines}, kSataTraits,
                      L"SATASelfTestEventMonitor::ReadAndUpdateDatasetSettings") {}
