// The base of every dataset monitor.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "client/log/log.h"
#include "framework/dataset_row.h"
#include "framework/monitor_services.h"
#include "tvk/records.h"
#include "tvk/service_types.h"

namespace platform {
struct SystemEvent;
}

/// One dataset's monitor. The manager makes it, runs Initialize and StartMonitor on a thread of its own, forwards
/// service controls to it, tells it of changes, and ends it with StopMonitor, UnInitialize and the destructor.
///
/// Threads: Initialize and StartMonitor run on the monitor's thread; everything else may be called by the manager's
/// threads, several at the same time, beside those two and before them, so a subclass guards what they touch. The base
/// holds no lock of its own but the one around the scope.
class EventMonitorBase {
 public:
  /// Item id of the device-initialisation item event of every dataset.
  static const std::wstring DeviceInitItemId;

  /// `handle`: of the hosting service, kept for subclasses. `device_path_changed`: whether the device path changed
  /// since the monitor last ran. `services` must outlive the monitor.
  EventMonitorBase(SERVICE_STATUS_HANDLE handle, bool device_path_changed, const TVK::MonitorServices& services);
  EventMonitorBase(const EventMonitorBase&) = default;
  EventMonitorBase& operator=(const EventMonitorBase&) = default;

 protected:
  /// Takes the dataset's settings over; true when a parameter that governs the schedule changed.
  virtual bool UpdateThrottleParameters(std::map<std::wstring, std::wstring>& settings);

 public:
  virtual ~EventMonitorBase() = default;

  /// Opens what the monitor needs. On the monitor's thread, before StartMonitor.
  virtual void Initialize() = 0;
  /// Releases it. After StopMonitor, while the monitor's thread may still be on its way out.
  virtual void UnInitialize() = 0;
  /// The main routine. Returns when the monitor stops, or when its own timers carry on without it.
  virtual void StartMonitor(std::wstring name) = 0;
  /// Ends the main routine and every timer. Returns soon; called once.
  virtual void StopMonitor() = 0;
  virtual void RestartMonitor() {}
  virtual std::wstring GetName() const = 0;
  /// Reacts to a service control code; 0 (NO_ERROR). The pointers are valid during the call only. Threads as for
  /// OnSystemEvent.
  virtual unsigned long OnServiceControlHandle(unsigned long control, unsigned long event_type, void* event_data,
                                               void* context);
  /// Reacts to what the system tells of power, sleep and users, in the form that is the same on every system. On the
  /// manager's threads: events may come side by side, beside StartMonitor, and before it. Nobody keeps one that comes
  /// before the monitor has described its devices, and nothing can be written of it; what is a state and no happening
  /// StartMonitor reads from the machine once it has described them.
  virtual void OnSystemEvent(const platform::SystemEvent& /*event*/) {}
  /// Reads the dataset's settings from the policy and applies them.
  virtual void ReadAndUpdateDatasetSettings() {}

  /// When the monitor's report is due next; nothing where it makes none in an interval.
  virtual std::optional<platform::ElapsedTime> NextReport() const { return std::nullopt; }

  /// Logs the dataset context when it changed or `new_context_needed`, and takes its id over.
  virtual void LogDatasetContext(bool /*new_context_needed*/) {}
  /// Logs the device-initialisation item event; the store's result.
  virtual int LogDevInitEvent() { return 0; }

 protected:
  /// Whether the monitor must log a device-initialisation event. `version`: what the manager's DecideTVKVer takes.
  virtual bool IsNewDeviceInitNeeded(const std::wstring& version);

 public:
  /// Logs the dataset context anew and, when `new_device`, the device-initialisation event after it.
  void OnDeviceContextChanges(bool new_device);

  /// Sets the telemetry scope of the whole client. Any thread.
  static void SetTelemetryScope(std::wstring scope);

  /// Removes every entry whose value is empty or equals `value`, case counting.
  static void SanitizeItemData(std::map<std::wstring, std::wstring>& item_data, std::wstring value);

  /// Waits for the dataset context of another monitor. `handles[0]`: this monitor's stop event, `handles[1]`: the
  /// other's dataset-context event. False when that event came (or the wait failed); true on stop, on time-out and when
  /// a handle is null.
  bool WaitForDatasetContextLog(platform::Waitable* const* handles, std::uint32_t timeout_ms,
                                const std::wstring& dataset_name);

 protected:
  /// True when the scope is "none", case aside. The empty scope before the first SetTelemetryScope is not.
  static bool isTelemetryScopeNone();

  void SetDevicePathChanged(bool changed) { device_path_changed_ = changed; }

  /// Reads the settings of `dataset_id` (case counting) and hands them to UpdateThrottleParameters; false when the
  /// policy or the dataset is not there, else what that returns.
  bool UpdateDatasetSettingsFromConfigPolicy(const std::wstring& dataset_id);

  /// Seconds since 1970 of a record time; see TVK::ParseRecordTime.
  std::int64_t GetTimeStamp(std::string time);
  /// The same, but the present when that is negative.
  std::int64_t TimeOfRecord(const std::wstring& time);

  /// The time of the earliest item event of `dataset_id` with `item_id` among the store's record ids below 1000. False
  /// when there is none; `time` then stays, unless it is negative, which always becomes the present.
  bool getLastItemEventTimeStamp(const std::wstring& dataset_id, const std::wstring& item_id, std::int64_t& time);

  /// The time of the last such item event, else of the dataset's last device-initialisation, else of its last dataset
  /// context, else of the last device context; false and 0 when the store has none of them.
  bool getLastItemEventTimeStampWithFallback(const std::wstring& dataset_id, const std::wstring& item_id,
                                             std::int64_t& time);

  /// Whether `interval_seconds` have passed since `last`. A `last` in the future is never due.
  bool isItemEventElapsed(const std::int64_t& last, const int& interval_seconds);
  /// The same, but a `last` that lies a whole interval or more in the future is due too; otherwise `remaining_seconds`
  /// receives what is left of the interval.
  bool isItemEventElapsed(const std::int64_t& last, const int& interval_seconds, std::uint64_t& remaining_seconds);

  const TVK::MonitorServices& services() const { return *services_; }
  SERVICE_STATUS_HANDLE service_status_handle() const { return service_status_handle_; }

  TVK::Log log_;  ///< The monitor's own log, opened by the subclass.

 private:
  bool ReadDatasetSettingsFromConfigPolicy(const std::wstring& dataset_id,
                                           std::map<std::wstring, std::wstring>& settings);

  SERVICE_STATUS_HANDLE service_status_handle_;
  bool device_path_changed_;
  const TVK::MonitorServices* services_;
};
