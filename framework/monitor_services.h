// Everything that a monitor is given to work with.
#pragma once

#include "client/battery/battery_info_collector.h"
#include "client/bus/news_publisher.h"
#include "client/identity/machine_information.h"
#include "client/identity/tvk_info.h"
#include "client/policy/config_agent.h"
#include "client/storage/hard_disk_info_collector.h"
#include "client/store/event_data_logging.h"
#include "framework/consent.h"
#include "framework/manager_identity.h"
#include "framework/second_tick.h"
#include "framework/shortage.h"
#include "platform/machine.h"
#include "platform/runtime.h"

namespace TVK {

/// References to the process's (or a simulated world's) services. All of them outlive every monitor.
struct MonitorServices {
  platform::Runtime& runtime;
  platform::Machine& machine;
  EventDataLogging& store;
  IConfigAgent& config;
  MachineInformation& machine_information;
  TvkInfo& tvk_info;
  StorageCollector::HardDiskInfoCollector& hard_disks;
  BatteryInfoCollector& batteries;
  NewsPublisher& news;
  ManagerIdentity& manager;
  SecondTick& second_tick;
  Consent& consent;
  ShortageListener on_shortage = {};  ///< May be empty: nothing is tried again.
};

}  // namespace TVK
