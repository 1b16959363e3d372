// The system-BIOS dataset: the firmware's identity, once per boot.
#pragma once

#include "framework/scheduled_monitor.h"
#include "monitors/system/system_bios_info.h"

/// See EventMonitorBase for who calls what. StartMonitor does all that there is to do and returns; it has no thread and
/// no timer.
///
/// The dataset context holds the facts that the items hold. At a start it is written only when they changed or when a
/// device-initialisation is due, so that a second start in one boot writes nothing.
class SystemBiosEventMonitor final : public TVK::ScheduledMonitor {
 public:
  static constexpr const TVK::DatasetRow& kRow = TVK::DatasetRowNamed(L"SystemBIOSEvent");
  inline static const std::wstring dataset_id{kRow.id};
  inline static const std::wstring dataset_name{kRow.name};
  inline static const std::wstring telemtry_scope_supported{kRow.scopes};
  /// Item name to item id.
  static const std::map<std::wstring, std::wstring> ITEM_EVENT_CONTEXT;

  explicit SystemBiosEventMonitor(const TVK::MonitorServices& services);

  void StartMonitor(std::wstring name) override;

  /// Writes the item event of this boot; see DatasetMonitor::WriteItem.
  int LogItemEvent(const SystemBiosInfo& info);

  /// When the system was booted, seconds since 1970: the newest record of the "System" log that says that the kernel
  /// started (12); else that the log service started (6005), which some systems keep longer; else that a restart was
  /// asked for (1074). Where the log has none of them, the machine's own boot time; empty when that is not known
  /// either.
  std::optional<std::int64_t> GetLastbootTime();

 protected:
  std::optional<std::vector<TVK::DescribedDevice>> Describe() override;

 private:
  void LogOncePerBoot();
  /// Whether the boot that is named by boot_id_, else the one at this time, has its item.
  bool HasItem(std::int64_t boot_time) const;

  std::atomic<bool> facts_known_ = false;
  SystemBiosInfo info_;   ///< Written before facts_known_ becomes true, then constant.
  std::wstring boot_id_;  ///< Of the running boot; empty where the system does not name boots. StartMonitor's alone.
  std::int64_t _lastModifiedTime = 0;  ///< Of the last item event, seconds since 1970; 0: none. StartMonitor's alone.
};
