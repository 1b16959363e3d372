// Puts together what the sources know of the machine's batteries.
#pragma once

#include <list>
#include <mutex>

#include "client/battery/battery_info.h"
#include "client/log/log.h"

class MachineInformation;

namespace platform {
class Batteries;
class PowerManager;
}  // namespace platform

/// Any thread; a lock serialises the readings, since the maker's software does not say that it bears two at once.
class BatteryInfoCollector {
 public:
  /// All three must outlive the object. Nothing is read before the first question.
  BatteryInfoCollector(platform::Batteries& batteries, platform::PowerManager& power_manager,
                       const MachineInformation& machine);
  BatteryInfoCollector(const BatteryInfoCollector&) = delete;
  BatteryInfoCollector& operator=(const BatteryInfoCollector&) = delete;
  ~BatteryInfoCollector() = default;

  /// One record a battery in the place of what `out` held. The operating system's facts come first; the energy
  /// management driver, on machines of the brands that have it, the log files and the library of the power manager
  /// then fill what is still "UnKnown", in this order; but what the library tells of condition and firmware stands.
  /// False when there is no battery.
  bool GetBatteryInfoList(std::list<BatteryInfo>& out);

 private:
  /// Whether the machine is of a brand whose batteries the energy-management driver knows.
  bool HasEmDriver() const;

  platform::Batteries& batteries_;
  platform::PowerManager& power_manager_;
  const MachineInformation& machine_;
  const TVK::Log log_;
  std::mutex mutex_;  ///< Held for a reading.
};
