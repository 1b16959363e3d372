// The memory dataset: the installed modules, how much memory is free once an interval, and every change of the load by
// five percentage points.
#pragma once

#include "framework/scheduled_monitor.h"
#include "monitors/system/memory_info.h"
#include "platform/memory.h"

/// See EventMonitorBase for who calls what. The report of changes and the usage report run on threads of their own;
/// StartMonitor returns once they run.
///
/// A machine that gives no SMBIOS table has no slots to describe: its dataset context holds the memory that the system
/// sees, and everything else goes on. Of a damaged table the slots before the damage are described. Only a table
/// shorter than its header ends StartMonitor with nothing started. Without consent at its start the monitor reads all
/// of this before the first item that it writes.
///
/// The look of each second is one of the shared tick's; the report thread wakes only to write a change.
class MemoryEventMonitor final : public TVK::ScheduledMonitor {
 public:
  static constexpr const TVK::DatasetRow& kRow = TVK::DatasetRowNamed(L"MemoryEvent");
  inline static const std::wstring dataset_id{kRow.id};
  inline static const std::wstring dataset_name{kRow.name};
  inline static const std::wstring telemtry_scope_supported{kRow.scopes};
  inline static const std::wstring regexForReadUsageInterval = L"^\\d+(m|h|d)$";
  /// Item name to item id. "Memory test" is published, and written by nothing in this version.
  static const std::map<std::wstring, std::wstring> ITEM_EVENT_CONTEXT;

  explicit MemoryEventMonitor(const TVK::MonitorServices& services);

  void StartMonitor(std::wstring name) override;

  /// The report of one interval; on the usage timer's thread.
  void ReadUsagePerInterval();
  /// Watches the memory load until the monitor stops; on the report thread.
  void MemoryStatusReportThread();
  /// Writes an item event; see DatasetMonitor::WriteItem.
  int LogItemEvent(const std::wstring& memory_event, ItemData data) { return WriteItem(memory_event, std::move(data)); }

  /// The item data of the usage items.
  static ItemData UsageToItemData(const platform::MemoryStatus& status);

 protected:
  bool UpdateThrottleParameters(std::map<std::wstring, std::wstring>& settings) override;
  std::optional<std::vector<TVK::DescribedDevice>> Describe() override;
  /// Logs the item event "MemoryEvent context updated" when the installed memory is another.
  void OnDescriptionChanged(const TVK::DescribedDevice& device, const ItemData& before) override;

 private:
  int ReadFacts();
  /// Nothing when the load cannot be read; `failing`, whether that was so the last time, keeps it to one line a
  /// failure.
  std::optional<platform::MemoryStatus> ReadStatus(bool& failing);
  /// The look of one second, on the tick's thread: returns the report of a change when there is one.
  TVK::SecondTick::Work LookAtLoad(bool& failing);

  /// The load that the next one is compared with, in percent; of the whole process, and reset by each report thread.
  inline static std::atomic<std::uint32_t> last_reported_load_ = 0;

  std::atomic<bool> change_event_enabled_ = true;
  std::atomic<bool> no_facts_ = false;  ///< They were asked for in vain.
  bool facts_known_ = false;            ///< Describe's alone, as is what follows.
  ItemData facts_;
};
