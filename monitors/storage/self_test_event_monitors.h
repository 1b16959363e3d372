// The datasets of the self-tests of NVMe drives and of SATA solid-state drives.
#pragma once

#include "monitors/storage/self_test_monitor.h"

/// See SelfTestMonitor. An interval shorter than a day is refused, and nothing tested.
class PCIeNVMeSelfTestEventMonitor final : public TVK::SelfTestMonitor {
 public:
  static constexpr const TVK::DatasetRow& kRow = TVK::DatasetRowNamed(L"PCIe_NVMe_SelfTestResult");
  inline static const std::wstring dataset_id{kRow.id};
  inline static const std::wstring dataset_name{kRow.name};
  inline static const std::wstring telemtry_scope_supported{kRow.scopes};
  /// Item name to item id.
  static const std::map<std::wstring, std::wstring> ITEM_EVENT_CONTEXT;

  explicit PCIeNVMeSelfTestEventMonitor(const TVK::MonitorServices& services);
};

/// See SelfTestMonitor. An interval shorter than a day is raised to one.
class SATASelfTestEventMonitor final : public TVK::SelfTestMonitor {
 public:
  static constexpr const TVK::DatasetRow& kRow = TVK::DatasetRowNamed(L"SATA_SSD_SelfTestResult");
  inline static const std::wstring dataset_id{kRow.id};
  inline static const std::wstring dataset_name{kRow.name};
  inline static const std::wstring telemtry_scope_supported{kRow.scopes};
  /// Item name to item id.
  static const std::map<std::wstring, std::wstring> ITEM_EVENT_CONTEXT;

  explicit SATASelfTestEventMonitor(const TVK::MonitorServices& services);
};
