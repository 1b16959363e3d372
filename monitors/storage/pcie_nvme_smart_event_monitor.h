// The dataset of NVMe drives' health.
#pragma once

#include "monitors/storage/smart_monitor.h"

/// See SmartMonitor.
class PCIeNVMeSmartEventMonitor final : public TVK::SmartMonitor {
 public:
  static constexpr const TVK::DatasetRow& kRow = TVK::DatasetRowNamed(L"PCIe_NVMe_SMARTEvent");
  inline static const std::wstring dataset_id{kRow.id};
  inline static const std::wstring dataset_name{kRow.name};
  inline static const std::wstring telemtry_scope_supported{kRow.scopes};
  /// Item name to item id.
  static const std::map<std::wstring, std::wstring> ITEM_EVENT_CONTEXT;

  explicit PCIeNVMeSmartEventMonitor(const TVK::MonitorServices& services);

  /// The record of this run of the service: "ReadSMARTPerSession" for every drive.
  void LogSnapshotEvent();

 protected:
  bool Qualifies(const StorageCollector::HardDisk& drive) const override;
  AskedHealth AskHealth(const StorageCollector::HardDisk& drive) override;
  void Begin() override;
};
