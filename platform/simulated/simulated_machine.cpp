#include "platform/simulated/simulated_machine.h"

#include "platform/simulated/simulated_batteries.h"
#include "platform/simulated/simulated_drives.h"
#include "platform/simulated/simulated_event_log.h"
#include "platform/simulated/simulated_firmware.h"
#include "platform/simulated/simulated_memory.h"
#include "platform/simulated/simulated_power.h"
#include "platform/simulated/simulated_processors.h"
#include "platform/simulated/simulated_system.h"
#include "platform/simulated/simulated_volumes.h"

namespace platform {
namespace {

MachineDoors MakeDoors() {
  MachineDoors doors;
  doors.processors = std::make_unique<SimulatedProcessors>();
  doors.memory = std::make_unique<SimulatedMemory>();
  doors.firmware = std::make_unique<SimulatedFirmware>();
  doors.event_log = std::make_unique<SimulatedEventLog>();
  auto system = std::make_unique<SimulatedSystemFacts>();
  auto region = std::make_unique<SimulatedRegion>();
  auto settings = std::make_unique<SimulatedSettings>(*system, *region);
  system->Follow([&told = *settings] { told.TellAll(); });
  region->Follow([&told = *settings] { told.TellAll(); });
  doors.system = std::move(system);
  doors.region = std::move(region);
  doors.settings = std::move(settings);
  doors.power = std::make_unique<SimulatedPower>();
  doors.batteries = std::make_shared<SimulatedBatteries>();
  doors.power_manager = std::make_shared<SimulatedPowerManager>();
  doors.drives = std::make_unique<SimulatedDrives>();
  doors.volumes = std::make_unique<SimulatedVolumes>();
  doors.system_events = std::make_unique<SimulatedSystemEvents>();
  return doors;
}

}  // namespace

SimulatedMachine::SimulatedMachine() : Machine(MakeDoors()) {}

SimulatedProcessors& SimulatedMachine::processors() const {
  return static_cast<SimulatedProcessors&>(Machine::processors());
}
SimulatedMemory& SimulatedMachine::memory() const {
  return static_cast<SimulatedMemory&>(Machine::memory());
}
SimulatedFirmware& SimulatedMachine::firmware() const {
  return static_cast<SimulatedFirmware&>(Machine::firmware());
}
SimulatedEventLog& SimulatedMachine::event_log() const {
  return static_cast<SimulatedEventLog&>(Machine::event_log());
}
SimulatedSystemFacts& SimulatedMachine::system() const {
  return static_cast<SimulatedSystemFacts&>(Machine::system());
}
SimulatedRegion& SimulatedMachine::region() const {
  return static_cast<SimulatedRegion&>(Machine::region());
}
SimulatedPower& SimulatedMachine::power() const {
  return static_cast<SimulatedPower&>(Machine::power());
}
SimulatedBatteries& SimulatedMachine::batteries() const {
  return static_cast<SimulatedBatteries&>(Machine::batteries());
}
SimulatedPowerManager& SimulatedMachine::power_manager() const {
  return static_cast<SimulatedPowerManager&>(Machine::power_manager());
}
SimulatedDrives& SimulatedMachine::drives() const {
  return static_cast<SimulatedDrives&>(Machine::drives());
}
SimulatedVolumes& SimulatedMachine::volumes() const {
  return static_cast<SimulatedVolumes&>(Machine::volumes());
}
SimulatedSystemEvents& SimulatedMachine::system_events() const {
  return static_cast<SimulatedSystemEvents&>(Machine::system_events());
}

}  // namespace platform
