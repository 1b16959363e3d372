// How the monitors of datasets start, follow their settings and stop.
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "framework/dataset_monitor.h"
#include "framework/interval_report.h"

namespace TVK {

/// The report that a dataset makes once in an interval.
struct ReportRule {
  std::wstring item;             ///< Name of its item event, whose last one the interval is counted from.
  std::function<void()> report;  ///< Makes it; on the timer's thread.
  const wchar_t* caller = L"";   ///< Stands in the log lines of a change of the interval.
  MonitorLine invalid_interval = L"%s: Invalid DatasetSettings ReadUsageInterval = %d";
  std::uint32_t least_interval_ms = IntervalReport::kLeastInterval;  ///< A shorter one is invalid.
  /// Whether a report that was never made is due at once; otherwise it is when an interval has passed since the dataset
  /// wrote something else. A dataset that writes with each start would never come to a report that is rarer than those.
  bool first_is_due = false;
};

/// A monitor with a stop event, threads and at most one report in an interval. StartMonitor, which the monitor writes,
/// makes the stop event (or Initialize does), starts what goes on and follows the settings; a stop may come at any
/// moment of it, or before. After StopMonitor, which must come before the end of the object when StartMonitor was
/// called, nothing runs. What the system refuses here the manager is told of, which tries again (see Shortage).
class ScheduledMonitor : public DatasetMonitor {
 public:
  /// Throws std::invalid_argument when the dataset does not have the item of `report`.
  ScheduledMonitor(const MonitorServices& services, const MonitorIdentity& identity,
                   std::optional<ReportRule> report = std::nullopt);

  void StopMonitor() override;
  /// Reads the settings anew. When the interval is another one, the reports start anew: the first comes after what is
  /// left of the interval since the last item event. An interval that cannot be used ends them, with an error line.
  /// Nothing before FollowSettings: StartMonitor reads them when it gets there. Reports that ReportEvery could not
  /// begin are begun.
  void ReadAndUpdateDatasetSettings() override;
  std::optional<platform::ElapsedTime> NextReport() const override { return report_.Due(); }

 protected:
  /// False when the monitor is stopping, and when the system gives no event, with the line `failure` and the error.
  /// `name`: of the event, for a monitor whose stop others can name; else it has none.
  bool MakeStopEvent(const wchar_t* caller, MonitorLine failure, const std::wstring& name = {});
  /// Manual-reset, so that it ends every wait. Null before MakeStopEvent; then kept until the monitor goes.
  platform::Event* stop_event() const;
  bool stopping() const { return stopping_; }
  /// Waits; false when the stop came first. Without a stop event there is nothing to wait for.
  bool Pause(std::chrono::milliseconds time) const;
  /// Waits for the dataset contexts of another dataset. False when the stop came first, or after `timeout_ms`. After
  /// MakeStopEvent.
  bool WaitForContextsOf(const DatasetRow& other, std::uint32_t timeout_ms);
  /// Looks once a second (see SecondTick) until the stop. After MakeStopEvent; on a thread of the monitor's own.
  void WatchSeconds(const std::string& name, const SecondTick::Look& look);
  /// Runs `body` on a thread that StopMonitor joins (see StartGuardedThread); not when the monitor is stopping. When
  /// the system gives none, an error is logged: `failure`, or a line of the frame's.
  void StartThread(const std::string& name, std::function<void()> body, MonitorLine failure = {});
  /// Reads the settings, and follows them from now on: what they start refers to the dataset context.
  void FollowSettings();
  /// Begins the reports in an interval that no setting governs.
  void ReportEvery(std::uint32_t interval_ms);
  /// Tells the manager what the system refused. Any thread.
  void TellShortage(Shortage shortage) const;
  /// For UpdateThrottleParameters: logs each setting that cannot be used, with what holds in its place.
  void LogMistakes(const std::vector<SettingReading>& readings) const;
  /// For UpdateThrottleParameters: LogMistakes, takes the interval over, and says whether it is another one.
  bool TakeInterval(std::uint32_t interval_ms, const std::vector<SettingReading>& readings);

 private:
  /// False when the system refused it.
  bool StartReports(std::uint32_t interval_ms);

  const ReportRule rule_;
  std::atomic<bool> follows_settings_ = false;
  std::atomic<std::uint32_t> fixed_interval_ms_ = 0;  ///< Of ReportEvery; 0 before it.
  std::atomic<bool> stopping_ = false;                ///< Changed with mutex_ held.
  mutable std::mutex mutex_;                          ///< Guards threads_ and stop_event_, which stays once it is made.
  std::unique_ptr<platform::Event> stop_event_;
  std::list<std::thread> threads_;
  IntervalReport report_;
};

}  // namespace TVK
