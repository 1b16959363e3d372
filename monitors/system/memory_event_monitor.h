// The memory dataset: the installed modules, how much memory is free once an interval, and every change of the load by
// five percentage points.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "framework/event_monitor_base.h"
#include "monitors/system/memory_info.h"
#include "platform/memory.h"

/// See EventMonitorBase for who calls what. The report of changes and the usage report run on threads of their own;
/// StartMonitor returns once they run.
///
/// A machine that gives no SMBIOS table has no slots to describe: its dataset context holds the memory that the system
/// sees, and everything else goes on. Of a damaged table the slots before the damage are described. Only a table
/// shorter than its header ends StartMonitor with nothing started.
///
/// The look of each second is one of the shared tick's; the report thread wakes only to write a change.
class MemoryEventMonitor final : public EventMonitorBase {
 public:
  static constexpr const DatasetRow& kRow = DatasetRowNamed(L"MemoryEvent");
  inline static const std::wstring dataset_id{kRow.id};
  inline static const std::wstring dataset_name{kRow.name};
  inline static const std::wstring telemtry_scope_supported{kRow.scopes};
  inline static const std::wstring regexForReadUsageInterval = L"^\\d+(m|h|d)$";
  /// Item name to item id. "Memory test" is published, and written by nothing in this version.
  static const std::map<std::wstring, std::wstring> ITEM_EVENT_CONTEXT;

  explicit MemoryEventMonitor(const MonitorServices& services);
  ~MemoryEventMonitor() override;
  MemoryEventMonitor(const MemoryEventMonitor&) = delete;
  MemoryEventMonitor& operator=(const MemoryEventMonitor&) = delete;

  void Initialize() override {}
  void UnInitialize() override {}
  void StartMonitor(std::wstring name) override;
  void StopMonitor() override;
  std::wstring GetName() const override { return dataset_name; }
  void ReadAndUpdateDatasetSettings() override;
  /// Logs the item event "MemoryEvent context updated" too, when the installed memory is not what the last dataset
  /// context of the store says.
  void LogDatasetContext(bool new_context_needed) override;
  int LogDevInitEvent() override;

  /// The report of one interval; on the usage timer's thread.
  void ReadUsagePerInterval();
  /// Watches the memory load until the monitor stops; on the report thread.
  void MemoryStatusReportThread();
  /// Writes an item event of this name. The store's result, logged when it is not 0; -1 for a name that is not in
  /// ITEM_EVENT_CONTEXT: an error is then logged and nothing written.
  int LogItemEvent(const std::wstring& memory_event, ItemData data);

  /// The item data of the usage items.
  static ItemData UsageToItemData(const platform::MemoryStatus& status);

 protected:
  bool UpdateThrottleParameters(std::map<std::wstring, std::wstring>& settings) override;

 private:
  int ReadFacts();
  bool StartReporting();
  /// The look of one second, on the tick's thread: reads the status, and returns the report of a change when there is
  /// one. `failing`: whether the last reading failed, for one line in the log a failure instead of one a second.
  SecondTick::Work LookAtLoad(bool& failing);
  std::wstring DatasetContextId();

  /// The load that the next one is compared with, in percent; of the whole process, and reset by each report thread.
  inline static std::atomic<std::uint32_t> last_reported_load_ = 0;

  const std::unique_ptr<platform::Event> dataset_context_event_;
  std::atomic<bool> change_event_enabled_ = true;
  std::atomic<bool> facts_known_ = false;
  std::atomic<bool> follows_settings_ = false;  ///< Not before the dataset context that the reports refer to.
  ItemData facts_;                              ///< Written before facts_known_ becomes true, then constant.

  std::mutex context_mutex_;  ///< Serialises LogDatasetContext; guards dataset_context_id_.
  std::wstring dataset_context_id_;

  IntervalReport usage_report_;

  std::mutex thread_mutex_;  ///< Guards what follows.
  bool stopping_ = false;
  /// Auto-reset: only the report thread waits for it. Made before that thread, and kept until the monitor goes.
  std::unique_ptr<platform::Event> stop_event_;
  std::thread report_thread_;
};
