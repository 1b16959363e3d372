// A computer in memory, scripted by tests, benchmarks and simulations: a plausible small laptop until then. Any thread
// may script and read it.
#pragma once

#include "platform/machine.h"

namespace platform {

class SimulatedBatteries;
class SimulatedDrives;
class SimulatedEventLog;
class SimulatedFirmware;
class SimulatedMemory;
class SimulatedPower;
class SimulatedPowerManager;
class SimulatedProcessors;
class SimulatedRegion;
class SimulatedSystemEvents;
class SimulatedSystemFacts;
class SimulatedVolumes;

/// Its doors are scripted one by one; each has a header of its own beside this one, but that system, region and
/// settings share one, power and system events another, and batteries and the power manager a third. A change of system
/// or region is told to those who watch the settings.
class SimulatedMachine final : public Machine {
 public:
  SimulatedMachine();

  // The doors of Machine, as what they are here.
  SimulatedProcessors& processors() const;
  SimulatedMemory& memory() const;
  SimulatedFirmware& firmware() const;
  SimulatedEventLog& event_log() const;
  SimulatedSystemFacts& system() const;
  SimulatedRegion& region() const;
  SimulatedPower& power() const;
  SimulatedBatteries& batteries() const;
  SimulatedPowerManager& power_manager() const;
  SimulatedDrives& drives() const;
  SimulatedVolumes& volumes() const;
  SimulatedSystemEvents& system_events() const;
};

}  // namespace platform
