// The report that a monitor makes once in the interval of its policy.
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "client/log/log.h"
#include "framework/dataset_settings.h"
#include "framework/timer_thread.h"
#include "platform/runtime.h"

namespace TVK {

/// Holds the interval and the timer of one report. Any thread.
class IntervalReport {
 public:
  /// In milliseconds. A report more often than once a minute would be felt on a laptop's battery.
  static constexpr std::uint32_t kLeastInterval = 60'000;

  /// `name` names the timer; `report` runs on the timer's thread. `least_interval`: the shortest that can be used, in
  /// milliseconds. Nothing runs yet. `runtime` must outlive the object.
  IntervalReport(platform::Runtime& runtime, std::wstring name, std::function<void()> report,
                 std::uint32_t least_interval = kLeastInterval);
  /// As Stop.
  ~IntervalReport();
  IntervalReport(const IntervalReport&) = delete;
  IntervalReport& operator=(const IntervalReport&) = delete;

  /// In milliseconds, 0 when there is none; at first 0.
  std::uint32_t interval() const;
  /// Takes an interval over; true when reports are to be begun with it: it is another than before, or is long enough
  /// and no report runs, as after a Start that failed. What runs goes on until Pause.
  bool SetInterval(std::uint32_t milliseconds);

  /// When the next report is due; nothing while there are none.
  std::optional<platform::ElapsedTime> Due() const;

  /// Held by whoever exchanges the interval and the timer, so that one does it at a time.
  std::unique_lock<std::mutex> LockForChange() { return std::unique_lock(change_mutex_); }
  /// Ends the reports without waiting for one that is being made.
  void Pause();
  /// Begins the reports with the interval, the first after a delay; both count the time that the machine sleeps (see
  /// PeriodicThread). Nothing after RequestStop. False when the system gives no thread or event: the error is logged,
  /// and the next SetInterval asks for another start.
  bool Start(std::uint64_t first_delay_seconds);
  /// Pause, for good.
  void RequestStop();
  /// RequestStop, and waits for every report that is being made.
  void Stop();

 private:
  using Timer = TimerThread<std::wstring>;

  void PauseLocked();  // with mutex_ held

  platform::Runtime& runtime_;
  Log log_;
  const std::wstring name_;
  const std::function<void()> report_;
  const std::uint32_t least_interval_;
  std::mutex change_mutex_;   ///< See LockForChange; taken before mutex_.
  mutable std::mutex mutex_;  ///< Guards what follows.
  bool stopped_ = false;
  std::uint32_t interval_ = 0;
  std::unique_ptr<Timer> timer_;              ///< Null: no reports.
  std::list<std::unique_ptr<Timer>> paused_;  ///< Perhaps still in their last report.
};

/// Reads the setting "ReadUsageInterval" that the datasets with such a report share; `pattern` is the dataset's own. In
/// milliseconds; 0: it has no default. One below IntervalReport::kLeastInterval cannot be used, see ReadAlsoShorter.
std::uint32_t ReadUsageInterval(const std::wstring& pattern, const SettingTexts& settings, SettingReading& reading);

}  // namespace TVK
