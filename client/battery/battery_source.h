// The sources of what is known of batteries, each behind its own reader. None of them throws for what it reads; what
// cannot be read stays "UnKnown".
#pragma once

#include <list>
#include <vector>

#include "client/battery/battery_info.h"
#include "client/log/log.h"

namespace platform {
class Batteries;
class PowerManager;
}  // namespace platform

namespace TVK {

/// One record for each battery that the operating system tells of, in its order.
std::list<BatteryInfo> GetBatteryInfoFromSystem(platform::Batteries& batteries);

/// What the energy-management driver tells of the first `count` batteries, in the order of the system's; all "UnKnown"
/// for one that it does not know.
std::vector<BatteryInfo> GetBatteryInfoFromEmDriver(platform::PowerManager& power_manager, std::size_t count);

/// Fills what is still "UnKnown" from the newest facts of the power manager's log files.
void GetBatteryInfoFromPwmLogFile(platform::PowerManager& power_manager, std::list<BatteryInfo>& list, const Log& log);

/// Asks the power manager's library about each battery, the first being its number 1. Condition and firmware version
/// are taken over wherever it tells them; everything else fills what is still "UnKnown".
void GetBatteryInfoFromPMDriver(platform::PowerManager& power_manager, std::list<BatteryInfo>& list, const Log& log);

}  // namespace TVK
