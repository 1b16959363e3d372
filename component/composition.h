// The services of one event manager, joined: for the process's own and for worlds that tests and benchmarks make.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "client/bus/publisher_subscriber.h"
#include "client/machine/machine_services.h"
#include "client/policy/config_agent.h"
#include "client/store/event_data_logging.h"
#include "component/policy_watch.h"
#include "component/service_channel.h"
#include "component/user_process.h"
#include "core/manager_services.h"
#include "host/device_context_event_monitor.h"
#include "host/system_event_relay.h"
#include "platform/machine.h"
#include "platform/runtime.h"

namespace TVK {

/// Made in the order in which its members depend on each other.
class Composition {
 public:
  struct Places {
    std::filesystem::path data_folder;  ///< Of the store and of the copies of the last good policies.
    std::filesystem::path policy_file;  ///< The client policy lies beside it.
    /// Where other processes reach the service; see platform::ListenLocally.
    std::filesystem::path channel = {};
    std::filesystem::path log_folder = {};  ///< Whose files are erased; empty: none are.

    std::filesystem::path tvk_policy_file() const { return policy_file.parent_path() / "client-policy.json"; }
  };

  /// What takes the place of the component's own. All of it must outlive the composition.
  struct Parts {
    IConfigAgent* config = nullptr;                      ///< Null: the policy files, which are watched.
    const DatasetTable* datasets = nullptr;              ///< Null: every dataset of the component.
    UserProcessAgent* user_process = nullptr;            ///< Null: the program beside this one.
    platform::Event* region_change = nullptr;            ///< Null: the machine's settings are watched.
    std::shared_ptr<const LastErrors> errors = nullptr;  ///< Of the logs, for the status; null: none are told.
  };

  /// What Start found.
  struct Opening {
    PolicyLoad policy;
    PolicyLoad tvk_policy;
    bool policy_in_force = false;  ///< A telemetry policy, or that there is none.
    std::string watch_problem;     ///< Why changes of the policy files will not be seen; empty: they will.
  };

  /// Opens the store, and ends an erasure that a kill interrupted. `remarks` is told what becomes of policy files that
  /// change, and what the manager lacks; may be empty. `runtime` and `machine` must outlive the object.
  Composition(platform::Runtime& runtime, platform::Machine& machine, const Places& places, const Parts& parts,
              RemarkObserver remarks = {});
  ~Composition();
  Composition(const Composition&) = delete;
  Composition& operator=(const Composition&) = delete;

  /// Reads the policy files and begins to watch what is to be watched; the manager is made after it. Once.
  Opening Start();

  const ManagerServices& manager_services() const { return manager_services_; }
  MachineServices& machine_services() { return machine_services_; }
  EventDataLogging& store() { return store_; }
  TVKPublisherSubscriber& bus() { return bus_; }

  /// Hands the system's own events to `receiver` in the place of the one before, until the end; null: to nobody.
  /// `service`: see SystemEvents::Open.
  void FollowSystemEvents(platform::SystemEventCallback receiver, void* service);
  /// Lets other processes of this machine reach `manager` at `place` (see platform::ListenLocally) until `manager` is
  /// null. That nobody can, for want of memory too, is told as a remark, and the service goes on. Needs a real runtime.
  void ServeChannel(ManagerAccess* manager, const std::filesystem::path& place = {});
  /// Reads the policy files soon. Any thread.
  void RereadPolicy();
  /// See Component. Any thread.
  void OnUserLogon();
  void OnSessionChange(const platform::SessionChange& change);

 private:
  struct PolicyFiles {
    PolicyFiles(platform::Runtime& runtime, TVKPublisherSubscriber& bus, const Places& places, RemarkObserver remarks);
    ConfigPolicyAgent agent;
    PolicyWatch watch;
  };

  platform::Runtime& runtime_;
  platform::Machine& machine_;
  EventDataLogging store_;
  Eraser eraser_;
  TVKPublisherSubscriber bus_;
  MachineServices machine_services_;
  std::optional<DatasetTable> own_datasets_;
  std::optional<PolicyFiles> policy_files_;
  std::optional<UserProcess> own_user_process_;
  std::optional<DeviceContextEventMonitor> device_context_monitor_;
  ManagerServices manager_services_;
  std::optional<SystemEventRelay> system_events_;
  const ServiceStatus status_;
  std::optional<ServiceChannel> channel_;
};

}  // namespace TVK
