// Everything that the manager is given to work with.
#pragma once

#include <functional>
#include <string>

#include "client/battery/battery_info_collector.h"
#include "client/bus/publisher_subscriber.h"
#include "client/identity/machine_information.h"
#include "client/identity/tvk_info.h"
#include "client/policy/config_agent.h"
#include "client/storage/hard_disk_info_collector.h"
#include "client/store/event_data_logging.h"
#include "core/dataset_table.h"
#include "core/user_process_agent.h"
#include "platform/machine.h"
#include "platform/runtime.h"

namespace TVK {

/// References to the process's (or a simulated world's) services. All of them outlive the manager.
struct ManagerServices {
  platform::Runtime& runtime;
  platform::Machine& machine;
  EventDataLogging& store;
  IConfigAgent& config;
  TVKPublisherSubscriber& bus;
  MachineInformation& machine_information;
  RegionInformation& region_information;
  TvkInfo& tvk_info;
  StorageCollector::HardDiskInfoCollector& hard_disks;
  BatteryInfoCollector& batteries;
  const DatasetTable& datasets;
  UserProcessAgent& user_process_agent;
  /// The event that says that the region changed; null: nobody watches the region.
  platform::Event* region_change_event = nullptr;
  /// Is told, a line each, what a person must know of a start for which the system gave too little; may be empty.
  std::function<void(const std::string& line)> remarks = {};
};

}  // namespace TVK
