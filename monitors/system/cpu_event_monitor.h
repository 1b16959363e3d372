// The CPU dataset: usage once an interval, sustained peaks from a check every second, and the processors' facts.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>

#include "framework/event_monitor_base.h"
#include "monitors/system/cpu_info.h"
#include "monitors/system/cpu_settings.h"

/// See EventMonitorBase for who calls what. StartMonitor returns once the peak check and the usage report run. The look
/// of each second is one of the shared tick's; only a peak wakes the check's own thread, which holds it for as long as
/// the peak must last.
class CpuEventMonitor final : public EventMonitorBase {
 public:
  static constexpr const DatasetRow& kRow = DatasetRowNamed(L"CPUEvent");
  inline static const std::wstring dataset_id{kRow.id};
  inline static const std::wstring dataset_name{kRow.name};
  inline static const std::wstring telemtry_scope_supported{kRow.scopes};
  inline static const std::wstring regexForReadUsageInterval = L"^\\d+(m|h|d)$";
  inline static const std::wstring regexForCPUPeakThresholdDuration = L"^\\d+(ms|s|m)$";
  /// Item name to item id.
  static const std::map<std::wstring, std::wstring> ITEM_EVENT_CONTEXT;

  explicit CpuEventMonitor(const MonitorServices& services);
  ~CpuEventMonitor() override;
  CpuEventMonitor(const CpuEventMonitor&) = delete;
  CpuEventMonitor& operator=(const CpuEventMonitor&) = delete;

  void Initialize() override {}
  void UnInitialize() override {}
  void StartMonitor(std::wstring name) override;
  void StopMonitor() override;
  std::wstring GetName() const override { return dataset_name; }
  void ReadAndUpdateDatasetSettings() override;
  void LogDatasetContext(bool new_context_needed) override;
  int LogDevInitEvent() override;

  /// The look of one second, on the tick's thread. Below the threshold there is nothing to do; otherwise it returns the
  /// rest of the check, which takes the configured duration and reports the peak if it lasts.
  SecondTick::Work CpuCheckEntry();
  /// The report of one interval; on the usage timer's thread.
  void ReadUsagePerInterval();
  /// Writes an item event of the given usage in percent. The store's result.
  int LogItemEvent(int usage, const std::wstring& item_name);
  std::wstring Int2Wstring(int number);

  bool get_CpuInfoLoaded() const { return cpu_info_loaded_; }
  void set_CpuInfoLoaded(bool loaded) { cpu_info_loaded_ = loaded; }

  /// The manual-reset event "CPUEvent_LogDatasetContext": clear while the dataset context is being logged, set when
  /// that is done. Null when it could not be made.
  platform::Event* getDatasetContextEventHandle() const { return dataset_context_event_.get(); }

  /// The dataset context's item data for these facts.
  static ItemData FactsToItemData(const _SYSCPU_INFORMATION& facts);

 protected:
  bool UpdateThrottleParameters(std::map<std::wstring, std::wstring>& settings) override;

 private:
  bool MakeStopEvent();
  bool StartPeakCheck();
  void FollowPeak(int sample);
  std::wstring DatasetContextId();

  CPUInfo collector_;
  const std::unique_ptr<platform::Event> dataset_context_event_;
  std::atomic<bool> cpu_info_loaded_ = false;
  std::atomic<bool> follows_settings_ = false;  ///< Not before the dataset context that the reports refer to.
  _SYSCPU_INFORMATION facts_;                   ///< Written before cpu_info_loaded_ becomes true, then constant.

  std::mutex context_mutex_;  ///< Serialises LogDatasetContext; guards dataset_context_id_.
  std::wstring dataset_context_id_;

  std::atomic<std::int32_t> peak_threshold_;
  std::atomic<std::uint32_t> peak_threshold_duration_ms_;

  IntervalReport usage_report_;

  std::mutex thread_mutex_;  ///< Guards what follows.
  bool stopping_ = false;
  /// Manual-reset, so that it ends every wait of the check. Made before the thread that uses it, and kept until the
  /// monitor goes.
  std::unique_ptr<platform::Event> stop_event_;
  std::thread check_thread_;
};
