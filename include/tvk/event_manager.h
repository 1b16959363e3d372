// The event manager: what a hosting service drives.
//
//   EventManager* manager = EventManager::GetInstance(handle);
//   manager->Initialize(agent);
//   manager->InitAndStartEventMonitors();
//   ... manager->OnServiceControlHandle(control, type, data, context) for every control that the service receives ...
//   manager->Stop();
#pragma once

#include <list>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "tvk/device_id_agent.h"
#include "tvk/export.h"
#include "tvk/service_types.h"

struct DataSet;
class DeviceContext;
class EventMonitorBase;
class TVKNotificationData;
class TelemetryPolicy;
struct ManagerServices;
namespace platform {
struct SystemEvent;
}

/// Runs the dataset monitors that the telemetry policy asks for and keeps the identity values of their records.
///
/// Threads. Initialize, InitAndStartEventMonitors and Stop belong to the service's control thread; the manager lock,
/// held for the whole of Initialize and Stop, makes them exclude each other. OnServiceControlHandle and the property
/// accessors may be called by any thread at any time. A second lock guards the monitor list; it is held while a control
/// is forwarded, so a monitor is never deleted under a control, and never while a monitor is being stopped or joined.
class TVK_EXPORT EventManager {
 public:
  /// Id of the device context's dataset.
  static const std::wstring kDeviceContextDatasetID;

  /// The process's manager, made at the first call with `handle`; later calls pass `handle` over. Owned by the library,
  /// and destroyed at the end of the process. Stop must come before that: a process that ends while monitors run is
  /// aborted.
  static EventManager* GetInstance(SERVICE_STATUS_HANDLE handle);
  static EventManager* GetInstance();

  EventManager(const EventManager&) = delete;
  EventManager& operator=(const EventManager&) = delete;

 protected:
  virtual ~EventManager();

 public:
  /// Starts one thread for each listed monitor. Call it once, after Initialize.
  virtual void InitAndStartEventMonitors();

 protected:
  /// Makes the monitor of a dataset, starts it and lists it; starts the user agent for the display dataset.
  virtual void RunAndAddToList(std::wstring dataset_id);
  /// Stops the dataset's monitor, joins its thread and removes it.
  virtual void StopAndRemoveFromList(std::wstring dataset_id);

 public:
  /// Builds the device context, compares it with the last one stored and, when it differs, takes a new one into force.
  /// `log_it`: also store it. `context` receives the one in force; it stays untouched when the facts cannot be
  /// gathered.
  virtual void LogDeviceContextData(bool log_it, DeviceContext& context, bool notify);
  /// See ManagerIdentity::DecideTVKVer.
  virtual int DecideTVKVer(std::wstring version);
  virtual std::wstring get_schema_ver();
  virtual std::wstring get_device_context_id();

  /// Subscribes to the bus, reads the policy, makes the monitors that it asks for and starts the notification thread.
  /// A null `agent`: only subscribes. A policy that cannot be read: logged; no monitor, no thread. `agent` is not owned
  /// and must live until Stop. Called again it keeps the monitors and renews the events and the notification thread.
  void Initialize(TVK::DeviceIdAgent* agent);

  /// Hands a service control to every listed monitor, in list order, unchanged; then, as OnSystemEvent does, the event
  /// that it means, if any. Returns 0 (NO_ERROR).
  unsigned long OnServiceControlHandle(unsigned long control, unsigned long event_type, void* event_data,
                                       void* context);

  /// Hands an event of the system to every listed monitor, in list order. Any thread.
  void OnSystemEvent(const platform::SystemEvent& event);

  /// Stops everything and joins every thread. May be called at any time, any number of times.
  void Stop();

  void set_svrHandle(SERVICE_STATUS_HANDLE handle);
  SERVICE_STATUS_HANDLE get_svrHandle() const;
  TVK::DeviceIdAgent* get_devidAgent() const;
  void set_devidAgent(TVK::DeviceIdAgent* agent);
  bool get_NeedToLogDatasetContextOnChange() const;
  bool set_NeedToLogDatasetContextOnChange(const bool& value);
  bool get_NoHashNetworkData() const;
  bool set_NoHashNetworkData(const bool& value);
  bool get_FirstInvocation() const;
  std::wstring get_DeviceId() const;
  std::wstring get_LegacyDeviceId() const;
  /// "none", "basic", "enhance" or "full".
  std::wstring get_Telemetry_Scope() const;
  void set_Telemetry_Scope(const std::wstring& scope);
  void set_schema_ver(const std::wstring& version);
  void set_device_context_id(const std::wstring& id);

  /// The running monitors. The list changes under the manager's hands: only for the control thread, while no
  /// notification can arrive.
  const std::list<std::pair<EventMonitorBase*, std::thread*>>& get_eventmonitor_list() const;

  /// Whether a change of the device path waits to be told to monitors and user agent.
  bool IsDevicePathChange() const;

  // The handlers of the notification thread. Between Initialize and Stop the control thread may call them too, but only
  // while no notification can arrive: they are not made to run side by side.
  /// Reconciles the monitors with the policy and the scope in force.
  void OnTelemetryScopeChanges();
  /// Tells every monitor that the device context changed.
  void OnDeviceContextChanges();

  /// Sorts `datasets` by start rank, stably; a dataset that is not known gets the rank 0.
  void OrderDatasets(std::list<DataSet>& datasets);
  /// Whether `datasets` holds `id` (exactly); copies the first such entry to `found`.
  bool SearchUpdatedConfig(const std::wstring& id, const std::list<DataSet>& datasets, DataSet& found);
  /// Stops the listed monitors that `datasets` or `scope` no longer allow.
  void StopDisabledDatasets(std::list<DataSet>& datasets, const std::wstring& scope);

 protected:
  /// An ordinary manager on `services`, which must outlive it; for the process's own and for simulated worlds.
  EventManager(const ManagerServices& services, SERVICE_STATUS_HANDLE handle);

  void set_FirstInvocation(bool value);

  /// Takes a notification from the bus; on the bus's thread.
  void OnNotification(TVKNotificationData& data);

 private:
  struct State;

  void CreateGlobalEvents();
  void AddNullAndNoneDatasets();
  void AddPolicyDatasets(TelemetryPolicy& policy);
  void StopMonitorQuietly(EventMonitorBase& monitor);
  void JoinAndDelete(const std::pair<EventMonitorBase*, std::thread*>& entry);
  void StartNotificationThread();
  void EndNotificationThread();
  void StartMonitorThread(std::pair<EventMonitorBase*, std::thread*>& entry);
  bool IsNullOrNoneDataset(const std::wstring& id, const std::wstring& name);
  bool SearchMonitorList(std::wstring name);
  EventMonitorBase* MakeMonitor(const DataSet& dataset);
  void StartDisplayProcess(const wchar_t* caller);
  bool NewDeviceContextData(DeviceContext& context, bool notify);
  bool CheckDeviceContextData(DeviceContext& fresh, DeviceContext& stored);
  void NotificationProcessorThread();
  void RunHandler(unsigned long index);
  void OnTelemetryPolicyNotification(TVKNotificationData& data);
  void OnTvkPolicyNotification(TVKNotificationData& data);
  void OnTvkPolicyChanges();
  void RereadSettings();
  void StartMissingDatasets(TelemetryPolicy& policy);
  bool ValidateDisplayEventWithNewPolicy();
  void WaitForEventMonitorThreads();

  std::unique_ptr<State> state_;
};
