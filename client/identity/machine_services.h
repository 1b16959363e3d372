// What the client's libraries know of one computer, joined.
#pragma once

#include "client/identity/machine_device_id_agent.h"
#include "client/identity/machine_information.h"
#include "client/identity/tvk_info.h"
#include "client/text/record_time.h"
#include "platform/machine.h"

namespace TVK {

/// Nothing is read before the first question. Any thread.
struct MachineServices {
  /// Both must outlive the object.
  MachineServices(platform::Machine& machine, const platform::Clock& clock)
      : machine_information(machine, clock),
        region_information(machine.region(), clock),
        tvk_info(System::GetTime(clock)),
        device_ids(machine.system(), machine.firmware()) {}

  MachineInformation machine_information;
  RegionInformation region_information;
  TvkInfo tvk_info;
  MachineDeviceIdAgent device_ids;
};

}  // namespace TVK
