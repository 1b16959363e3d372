// The system-BIOS dataset: the firmware's identity, once per boot.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "framework/event_monitor_base.h"
#include "monitors/system/system_bios_info.h"

/// See EventMonitorBase for who calls what. StartMonitor does all that there is to do and returns; it has no thread and
/// no timer.
///
/// The dataset context holds the facts that the items hold. At a start it is written only when they changed or when a
/// device-initialisation is due, so that a second start in one boot writes nothing.
class SystemBiosEventMonitor final : public EventMonitorBase {
 public:
  static constexpr const DatasetRow& kRow = DatasetRowNamed(L"SystemBIOSEvent");
  inline static const std::wstring dataset_id{kRow.id};
  inline static const std::wstring dataset_name{kRow.name};
  inline static const std::wstring telemtry_scope_supported{kRow.scopes};
  /// Item name to item id.
  static const std::map<std::wstring, std::wstring> ITEM_EVENT_CONTEXT;

  explicit SystemBiosEventMonitor(const MonitorServices& services);
  ~SystemBiosEventMonitor() override;
  SystemBiosEventMonitor(const SystemBiosEventMonitor&) = delete;
  SystemBiosEventMonitor& operator=(const SystemBiosEventMonitor&) = delete;

  void Initialize() override;
  void UnInitialize() override {}
  void StartMonitor(std::wstring name) override;
  void StopMonitor() override;
  std::wstring GetName() const override { return dataset_name; }
  void LogDatasetContext(bool new_context_needed) override;
  int LogDevInitEvent() override;

  /// Writes the item event of this boot. The store's result; a failure is logged.
  int LogItemEvent(const SystemBiosInfo& info);

  /// When the system was booted, seconds since 1970: the newest record of the "System" log that says that the kernel
  /// started (12); else that the log service started (6005), which some systems keep longer; else that a restart was
  /// asked for (1074). Where the log has none of them, the machine's own boot time; empty when that is not known
  /// either.
  std::optional<std::int64_t> GetLastbootTime();

 private:
  void LogOncePerBoot();
  std::wstring DatasetContextId();

  const std::unique_ptr<platform::Event> dataset_context_event_;
  std::atomic<bool> stopping_ = false;
  std::atomic<bool> facts_known_ = false;
  SystemBiosInfo info_;                ///< Written before facts_known_ becomes true, then constant.
  std::int64_t _lastModifiedTime = 0;  ///< Of the last item event, seconds since 1970; 0: none. StartMonitor's alone.

  std::mutex context_mutex_;  ///< Serialises LogDatasetContext; guards dataset_context_id_.
  std::wstring dataset_context_id_;
};
