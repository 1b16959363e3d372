// Watches the facts about system and region that a device context is made of.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "client/identity/country_code_agent.h"
#include "client/identity/machine_information.h"
#include "client/log/log.h"
#include "host/reg_monitor.h"
#include "platform/machine.h"
#include "platform/runtime.h"

/// Raises one event when the system's product name or version, or the user's nation or locale really change. One in a
/// process, which keeps it between Start and Stop on a thread of its own; the thread sleeps while nothing changes.
///
/// Start and Stop belong to one thread; the other operations to any, between the return of Start and the call of Stop.
class DeviceContextEventMonitor {
 public:
  /// All must outlive the object. `machine_information` is refreshed before the event is raised.
  DeviceContextEventMonitor(platform::Runtime& runtime, platform::Machine& machine,
                            MachineInformation& machine_information);
  /// Stops.
  ~DeviceContextEventMonitor();
  DeviceContextEventMonitor(const DeviceContextEventMonitor&) = delete;
  DeviceContextEventMonitor& operator=(const DeviceContextEventMonitor&) = delete;

  /// Starts the worker thread. When it returns, the event exists and every change from now on counts, or the log says
  /// what could not be had. Started already: ends the process, as assigning to a running thread does.
  void Start();

  /// Ends the worker thread and closes the event. Without Start before, and twice, harmless. Nobody may wait for the
  /// event any more.
  void Stop();

  /// Whether the system's settings (and the user's, if somebody was logged on) are watched.
  bool IsReady() const { return ready_; }

  /// Somebody is logged on: watches the user's nation and locale too. Raises the event when they differ from what
  /// `machine_information` read before. Returns whether a user's settings are watched; false, and nothing done, as long
  /// as the monitor is not ready.
  bool TryAddUserRelatedMonitors();

  /// The users of the machine changed: the nation and locale that are watched are those of whoever uses it now, and
  /// count as changed where they differ. Nothing is done as long as the monitor is not ready.
  void OnSessionChange(const platform::SessionChange& change);

  /// The event "Global\_liveeventDeviceContextEvent", which resets itself. Null before Start, after Stop, and when it
  /// could not be made.
  platform::Event* getRegionChangeEventHandle() const { return region_change_event_.get(); }

 private:
  void Init();
  void InitEvent();
  void MonitorRegistryFields();
  bool AddMonitors();
  void AddMonitor(platform::Setting setting);
  void AddUserMonitors();
  bool RegionDiffersFromFacts() const;
  void WaitForChanges();
  void OnChange(unsigned long index);
  unsigned long GetKeyValueForMonitor(unsigned long index, std::wstring& value);
  bool VerifyKeyValueForMonitor(unsigned long index, const std::wstring& value) const;
  bool IsCountry(const std::wstring& nation) const;
  void RaiseDeviceInfoChangedEvent();

  platform::Runtime& runtime_;
  platform::Machine& machine_;
  MachineInformation& machine_information_;
  const CountryCodeAgent country_codes_;
  TVK::Log log_;
  const std::unique_ptr<platform::Event> started_;  ///< The worker has come as far as Start promises.
  std::thread worker_;

  // Made by the worker before it sets started_; the other threads come after that.
  std::unique_ptr<platform::Event> region_change_event_;
  std::unique_ptr<TVK::CRegMonitor> registry_;

  std::atomic<bool> stop_requested_ = false;
  std::atomic<bool> ready_ = false;

  std::mutex values_mutex_;               ///< Guards everything below. Never held while a value is verified.
  std::vector<std::wstring> key_values_;  ///< Last known values; element i belongs to the registry's index i + 1.
  bool user_monitors_added_ = false;
};
