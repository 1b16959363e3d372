#include <stdexcept>

#include "platform/batteries.h"
#include "platform/drives.h"
#include "platform/event_log.h"
#include "platform/firmware.h"
#include "platform/local.h"
#include "platform/memory.h"
#include "platform/power.h"
#include "platform/power_manager.h"
#include "platform/processors.h"
#include "platform/region.h"
#include "platform/settings.h"
#include "platform/system_events.h"
#include "platform/system_facts.h"
#include "platform/volumes.h"
#include "platform/windows/doors_windows.h"

namespace platform {

std::unique_ptr<Machine> OpenLocalMachine(const LocalMachineOptions& options, const Clock& clock) {
  if (!options.sysroot.empty() && options.sysroot != "/") {
    throw std::invalid_argument("a recorded machine can be opened on Linux only");
  }
  MachineDoors doors;
  doors.processors = windows::MakeProcessors();
  doors.memory = windows::MakeMemory();
  doors.firmware = windows::MakeFirmware();
  doors.event_log = windows::MakeEventLog();
  doors.system = windows::MakeSystemFacts(clock);
  doors.region = windows::MakeRegion();
  doors.settings = windows::MakeSettings();
  doors.power = windows::MakePower();
  doors.batteries = windows::MakeBatteries();
  doors.power_manager = windows::MakePowerManager();
  doors.drives = windows::MakeDrives();
  doors.volumes = windows::MakeVolumes();
  doors.system_events = windows::MakeSystemEvents();
  return std::make_unique<Machine>(std::move(doors));
}

}  // namespace platform
