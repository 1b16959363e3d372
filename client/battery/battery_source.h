// The sources of what is known of batteries, each behind its own reader. None of them throws for what it reads; what
// cannot be read stays "UnKnown". Whoever tells of batteries by numbers is asked for the slot's own number, and what
// comes with the serial number of another battery than is known to be in the slot is left out as a whole.
#pragma once

#include <list>
#include <vector>

#include "client/battery/battery_info.h"
#include "client/battery/source_faults.h"

namespace platform {
struct BatteryFacts;
class PowerManager;
}  // namespace platform

namespace TVK {

/// One record for each battery that the operating system tells of, in its order.
std::list<BatteryInfo> GetBatteryInfoFromSystem(const std::vector<platform::BatteryFacts>& batteries);

/// Fills what is still "UnKnown" from what the energy-management driver tells of the batteries whose number is known.
void GetBatteryInfoFromEmDriver(platform::PowerManager& power_manager, std::list<BatteryInfo>& list);

/// Fills what is still "UnKnown" from the newest facts of the power manager's log files.
void GetBatteryInfoFromPwmLogFile(platform::PowerManager& power_manager, std::list<BatteryInfo>& list,
                                  SourceFaults& faults);

/// Asks the power manager's library about each battery whose number is known, the first slot being its number 1.
/// Condition and firmware version are taken over wherever it tells them; everything else fills what is still "UnKnown".
void GetBatteryInfoFromPMDriver(platform::PowerManager& power_manager, std::list<BatteryInfo>& list,
                                SourceFaults& faults);

}  // namespace TVK
