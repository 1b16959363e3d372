// The event manager: what a hosting service drives.
//
//   EventManager* manager = EventManager::GetInstance(handle);  // behind TVK::Component::Open
//   manager->Initialize(agent);
//   manager->InitAndStartEventMonitors();
//   ... manager->OnServiceControlHandle(control, type, data, context) for every control that the service receives ...
//   manager->Stop();
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tvk/device_id_agent.h"
#include "tvk/export.h"
#include "tvk/records.h"
#include "tvk/service_types.h"

namespace TVK {

// For the component's own parts; hosts need none of them.
struct ManagerServices;
class ManagerAccess;

}  // namespace TVK
namespace platform {
struct SystemEvent;
}

/// Runs the dataset monitors that the telemetry policy asks for and keeps the identity values of their records.
///
/// Threads. Initialize, InitAndStartEventMonitors and Stop belong to the service's control thread; Initialize and Stop
/// exclude each other for their whole run. Everything else may be called by any thread at any time, but not from inside
/// a monitor. No exception leaves an operation: what fails is logged in "EventManager.log", and where there is no
/// memory for a text or a list that is asked for, it is empty.
class TVK_EXPORT EventManager {
 public:
  /// Id of the device context's dataset.
  static const std::wstring kDeviceContextDatasetID;

  /// The process's manager, made at the first call after TVK::Component::Open with `handle`; later calls pass `handle`
  /// over. Owned by the library, valid until TVK::Component::Close; after the next Open there is another one. Null
  /// while nothing is open, and when the system gives too little to make one: that is logged, and the next call tries
  /// again.
  static EventManager* GetInstance(SERVICE_STATUS_HANDLE handle);
  static EventManager* GetInstance();

  EventManager(const EventManager&) = delete;
  EventManager& operator=(const EventManager&) = delete;

 protected:
  virtual ~EventManager();

 public:
  /// Starts one thread for each listed monitor. Call it once, after Initialize. A monitor for which the system gives no
  /// thread stays listed and does nothing; that is logged, told as a remark, and tried again when the policy changes.
  virtual void InitAndStartEventMonitors();

 protected:
  /// Makes the monitor of a dataset, starts it and lists it; starts the user agent for the display dataset.
  virtual void RunAndAddToList(std::wstring dataset_id);
  /// Stops the dataset's monitor, joins its thread and removes it.
  virtual void StopAndRemoveFromList(std::wstring dataset_id);

 public:
  /// Builds the device context, compares it with the last one stored and, when it differs, takes a new one into force.
  /// `log_it`: also store it at once; otherwise it is stored with the next record, which refers to it. `context`
  /// receives the one in force; it stays untouched when the facts cannot be gathered. `notify` has no effect: whoever
  /// must know is always told.
  virtual void LogDeviceContextData(bool log_it, DeviceContext& context, bool notify);
  /// Whether the last device-initialisation event was written by another version of the client, or while the device
  /// belonged elsewhere. `version`: the id of a dataset, whose own last event then counts; any other text: the last
  /// event of any dataset. 0: by this version, for this device path. 1: by another version. 2: there is none, or its
  /// device context is gone. 3: for another device path.
  virtual int DecideTVKVer(std::wstring version);
  virtual std::wstring get_schema_ver();
  /// Of the device context in force; empty before the first was built.
  virtual std::wstring get_device_context_id();

  /// Subscribes to the bus, reads the policy, makes the monitors that it asks for and starts the notification thread.
  /// A null `agent`: only subscribes. A policy that cannot be read: logged; no monitor, no thread. `agent` is not owned
  /// and must live until Stop; an id that it does not give (or throws at) stays empty. Called again it keeps the
  /// monitors and renews the events and the notification thread. When the system gives too little for a start, nothing
  /// runs afterwards, as behind Stop (but for the notification thread, which alone may be missing: logged).
  void Initialize(TVK::DeviceIdAgent* agent);

  /// Hands a service control to every listed monitor, in list order, unchanged; then the event of the system that it
  /// means, if any. Returns 0 (NO_ERROR).
  unsigned long OnServiceControlHandle(unsigned long control, unsigned long event_type, void* event_data,
                                       void* context);

  /// Stops everything and joins every thread. May be called at any time, any number of times.
  void Stop();

  /// The host's own; monitors register for the system's notifications with it when they start.
  void set_svrHandle(SERVICE_STATUS_HANDLE handle);
  SERVICE_STATUS_HANDLE get_svrHandle() const;
  /// Not owned; see Initialize. Another one counts from the next Initialize.
  TVK::DeviceIdAgent* get_devidAgent() const;
  void set_devidAgent(TVK::DeviceIdAgent* agent);
  /// Only told in the logs of the monitors: a context of what has changed is always written.
  bool get_NeedToLogDatasetContextOnChange() const;
  /// Returns the new value.
  bool set_NeedToLogDatasetContextOnChange(const bool& value);
  /// Whether network data stay unhashed, as the policy says.
  bool get_NoHashNetworkData() const;
  /// Returns the new value.
  bool set_NoHashNetworkData(const bool& value);
  /// Whether this is the client's first run on the device.
  bool get_FirstInvocation() const;
  std::wstring get_DeviceId() const;
  std::wstring get_LegacyDeviceId() const;
  /// "none", "basic", "enhance" or "full".
  std::wstring get_Telemetry_Scope() const;
  /// Holds until the policy's scope is told anew, and can only narrow what the policy consents to. Case does not
  /// matter; any other text counts as "none".
  void set_Telemetry_Scope(const std::wstring& scope);
  /// Of the records that are written from now on: "2.0" until then.
  void set_schema_ver(const std::wstring& version);
  /// For a host that writes its device contexts itself: monitors then write theirs anew, under this one.
  void set_device_context_id(const std::wstring& id);

  /// The names of the datasets whose monitors are listed, in list order: a copy.
  std::vector<std::wstring> get_eventmonitor_list() const;

  /// From Initialize, even one that found no agent or no policy, to Stop: false behind an Initialize for which the
  /// system gave too little. Not while one of these runs.
  bool is_initialized() const;
  /// Whether news (of policies, of the region) is acted on: false while there is no notification thread.
  bool FollowsNews() const;
  /// Whether a change of the device path waits to be told to monitors and user agent.
  bool IsDevicePathChange() const;

  // What the notification thread does on news; it and these run one at a time. A host needs them for news that the bus
  // did not bring.
  /// Reconciles the monitors with the policy and the scope in force.
  void OnTelemetryScopeChanges();
  /// Tells every monitor that the device context changed.
  void OnDeviceContextChanges();

 protected:
  /// An ordinary manager on `services`, which must outlive it; for the process's own and for simulated worlds.
  EventManager(const TVK::ManagerServices& services, SERVICE_STATUS_HANDLE handle);

  void set_FirstInvocation(bool value);

  /// What the local channel asks of the manager; lives as long as it.
  TVK::ManagerAccess& access();

  /// Hands an event of the system to every listed monitor, in list order. Any thread.
  void OnSystemEvent(const platform::SystemEvent& event);

 private:
  struct TVK_NO_EXPORT Parts;
  void InitializeLocked(TVK::DeviceIdAgent* agent);
  void StopLocked();

  const std::unique_ptr<Parts> parts_;
};
