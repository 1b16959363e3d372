#include "platform/linux/doors_linux.h"
#include "platform/linux/power_wishes.h"
#include "platform/local.h"

#include "platform/batteries.h"
#include "platform/drive_recording.h"
#include "platform/drives.h"
#include "platform/event_log.h"
#include "platform/firmware.h"
#include "platform/memory.h"
#include "platform/power.h"
#include "platform/power_manager.h"
#include "platform/processors.h"
#include "platform/recorded_drives.h"
#include "platform/region.h"
#include "platform/settings.h"
#include "platform/system_events.h"
#include "platform/system_facts.h"
#include "platform/volumes.h"

namespace platform {

std::unique_ptr<Machine> OpenLocalMachine(const LocalMachineOptions& options, const Clock& clock) {
  const Sysroot root(options.sysroot);
  MachineDoors doors;
  doors.processors = MakeProcessors(root, clock);
  doors.memory = MakeMemory(root);
  doors.firmware = MakeFirmware(root);
  doors.system = MakeSystemFacts(root);
  doors.region = MakeRegion(root);
  doors.settings = MakeSettings(root, *doors.system, *doors.region);
  const auto wishes = std::make_shared<PowerWishes>();
  doors.power = MakePower(root, wishes);
  doors.batteries = MakeBatteries(root);
  doors.power_manager = std::make_shared<NoPowerManager>();
  const bool local = options.sysroot == "/";
  doors.event_log = MakeEventLog(root, clock);
  doors.volumes = MakeVolumes(root, local);
  if (local) {
    doors.drives = MakeDrives(root, OpenDriveDevice);
    doors.system_events = MakeSystemEvents(root, wishes);
  } else {
    const std::filesystem::path recorded = options.sysroot / kDrivesFolder;
    std::error_code failure;
    doors.drives =
        std::filesystem::is_directory(recorded, failure) ? MakeRecordedDrives(recorded) : MakeDrives(root, {});
    doors.system_events = std::make_unique<NoSystemEvents>();
  }
  return std::make_unique<Machine>(std::move(doors));
}

}  // namespace platform
