// What the client's libraries know of one computer, joined.
#pragma once

#include "client/battery/battery_info_collector.h"
#include "client/identity/machine_device_id_agent.h"
#include "client/identity/machine_information.h"
#include "client/identity/tvk_info.h"
#include "client/storage/hard_disk_info_collector.h"
#include "client/text/record_time.h"
#include "platform/machine.h"
#include "platform/runtime.h"

namespace TVK {

/// Nothing is read before the first question. Any thread.
struct MachineServices {
  /// Both must outlive the object.
  MachineServices(platform::Machine& machine, platform::Runtime& runtime)
      : machine_information(machine, runtime.clock()),
        region_information(machine.region(), runtime.clock()),
        tvk_info(System::GetTime(runtime.clock())),
        hard_disks(runtime, machine.drives()),
        batteries(runtime, machine.batteries(), machine.power_manager(), machine_information),
        device_ids(machine.system(), machine.firmware()) {}

  MachineInformation machine_information;
  RegionInformation region_information;
  TvkInfo tvk_info;
  StorageCollector::HardDiskInfoCollector hard_disks;
  BatteryInfoCollector batteries;
  MachineDeviceIdAgent device_ids;
};

}  // namespace TVK
