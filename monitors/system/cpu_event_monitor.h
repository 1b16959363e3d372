// The CPU dataset: usage once an interval, sustained peaks from a check every second, and the processors' facts.
#pragma once

#include "framework/scheduled_monitor.h"
#include "monitors/system/cpu_info.h"

/// See EventMonitorBase for who calls what. StartMonitor returns once the peak check and the usage report run. The look
/// of each second is one of the shared tick's; only a peak wakes the check's own thread, which holds it for as long as
/// the peak must last.
///
/// Without consent at its start the monitor reads the processors' facts when the consent has come. They are asked for
/// once; without them nothing is measured.
class CpuEventMonitor final : public TVK::ScheduledMonitor {
 public:
  static constexpr const TVK::DatasetRow& kRow = TVK::DatasetRowNamed(L"CPUEvent");
  inline static const std::wstring dataset_id{kRow.id};
  inline static const std::wstring dataset_name{kRow.name};
  inline static const std::wstring telemtry_scope_supported{kRow.scopes};
  inline static const std::wstring regexForReadUsageInterval = L"^\\d+(m|h|d)$";
  inline static const std::wstring regexForCPUPeakThresholdDuration = L"^\\d+(ms|s|m)$";
  /// Item name to item id.
  static const std::map<std::wstring, std::wstring> ITEM_EVENT_CONTEXT;

  explicit CpuEventMonitor(const TVK::MonitorServices& services);

  void StartMonitor(std::wstring name) override;

  /// The look of one second, on the tick's thread. Below the threshold there is nothing to do; otherwise it returns the
  /// rest of the check, which takes the configured duration and reports the peak if it lasts.
  TVK::SecondTick::Work CpuCheckEntry();
  /// The report of one interval, on the usage timer's thread. Right after the counter was opened it waits until there
  /// is something measured.
  void ReadUsagePerInterval();
  /// Writes an item event of the given usage in percent; see DatasetMonitor::WriteItem.
  int LogItemEvent(int usage, const std::wstring& item_name);
  std::wstring Int2Wstring(int number);

  bool get_CpuInfoLoaded() const { return cpu_info_loaded_; }
  void set_CpuInfoLoaded(bool loaded) { cpu_info_loaded_ = loaded; }
  void set_CpuInfoLoadedWrapper(bool loaded) { set_CpuInfoLoaded(loaded); }

  /// The dataset context's item data for these facts.
  static ItemData FactsToItemData(const _SYSCPU_INFORMATION& facts);

 protected:
  bool UpdateThrottleParameters(std::map<std::wstring, std::wstring>& settings) override;
  std::optional<std::vector<TVK::DescribedDevice>> Describe() override;

 private:
  void FollowPeak(int sample);

  CPUInfo collector_;
  std::atomic<bool> facts_asked_for_ = false;  ///< And cpu_info_loaded_ says whether they were given.
  std::atomic<bool> cpu_info_loaded_ = false;
  _SYSCPU_INFORMATION facts_;  ///< Written by Describe before cpu_info_loaded_ becomes true, then constant.
  std::atomic<std::int32_t> peak_threshold_;
  std::atomic<std::uint32_t> peak_threshold_duration_ms_;
};
