// The dataset of the health of SATA solid-state drives.
#pragma once

#include "monitors/storage/smart_info.h"
#include "monitors/storage/smart_monitor.h"

/// See SmartMonitor.
class SATASmartEventMonitor final : public TVK::SmartMonitor {
 public:
  static constexpr const TVK::DatasetRow& kRow = TVK::DatasetRowNamed(L"SATA_SSD_SMARTEvent");
  inline static const std::wstring dataset_id{kRow.id};
  inline static const std::wstring dataset_name{kRow.name};
  inline static const std::wstring telemtry_scope_supported{kRow.scopes};
  /// Item name to item id.
  static const std::map<std::wstring, std::wstring> ITEM_EVENT_CONTEXT;

  explicit SATASmartEventMonitor(const TVK::MonitorServices& services);

  /// The record of this run of the service: "ReadSMARTPerSession" for every drive.
  void LogSnapshotEvent();

 protected:
  bool Qualifies(const StorageCollector::HardDisk& drive) const override;
  AskedHealth AskHealth(const StorageCollector::HardDisk& drive) override;
  void Begin() override;

 private:
  const SATASmartInfo info_{log_};
};
