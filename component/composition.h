// All services of one process's event manager, joined.
#pragma once

#include <memory>
#include <optional>

#include "client/bus/publisher_subscriber.h"
#include "client/identity/machine_device_id_agent.h"
#include "client/identity/machine_information.h"
#include "client/identity/tvk_info.h"
#include "client/policy/config_agent.h"
#include "client/store/event_data_logging.h"
#include "component/policy_watch.h"
#include "component/user_process.h"
#include "core/manager_services.h"
#include "host/device_context_event_monitor.h"
#include "host/system_event_relay.h"
#include "platform/machine.h"
#include "platform/runtime.h"
#include "platform/system_facts.h"
#include "tvk/component.h"

/// Made by Open, in the order in which its members depend on each other. One in a process.
class Composition {
 public:
  /// Opens all that can be opened; `result` says whether anything is missing that the component cannot do without.
  /// Null when the sysroot of `options` is no folder: there is no machine then.
  static std::unique_ptr<Composition> Open(const TVK::ComponentOptions& options, TVK::RecordObserver observer,
                                           TVK::RemarkObserver remarks, TVK::ComponentResult& result);
  ~Composition();
  Composition(const Composition&) = delete;
  Composition& operator=(const Composition&) = delete;

  const ManagerServices& manager_services() const { return manager_services_; }
  TVK::DeviceIdAgent& device_id_agent() { return device_id_agent_; }
  /// Hands the system's own events to `receiver` in the place of the one before, until the end; null: to nobody.
  void FollowSystemEvents(platform::SystemEventCallback receiver) {
    system_events_.reset();
    if (receiver) system_events_.emplace(machine_->system_events(), *runtime_, std::move(receiver));
  }
  void RereadPolicy() { policy_watch_.Reread(); }
  void OnUserLogon() {
    if (machine_->system().ReadLoggedInUserId().empty()) return;  // to be told at the next logon
    device_context_monitor_.TryAddUserRelatedMonitors();
    user_process_.OnUserLogon();
  }

 private:
  struct Places {
    std::filesystem::path policy_file;
    std::filesystem::path tvk_policy_file;
    std::filesystem::path data_folder;
    std::filesystem::path log_folder;
    std::filesystem::path named_event_folder;
    std::filesystem::path sysroot;
  };
  static Places ResolvePlaces(const TVK::ComponentOptions& options);
  Composition(const Places& places, TVK::RemarkObserver remarks);

  const std::unique_ptr<platform::Runtime> runtime_;
  const std::unique_ptr<platform::Machine> machine_;
  ConfigPolicyAgent policy_agent_;
  TVK::EventDataLogging store_;
  TVKPublisherSubscriber bus_;
  MachineInformation machine_information_;
  RegionInformation region_information_;
  TvkInfo tvk_info_;
  TVK::MachineDeviceIdAgent device_id_agent_;
  const DatasetTable datasets_;
  UserProcess user_process_;
  PolicyWatch policy_watch_;
  DeviceContextEventMonitor device_context_monitor_;
  ManagerServices manager_services_;
  std::optional<SystemEventRelay> system_events_;
};
