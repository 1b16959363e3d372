// `tvkctl inspect battery` and `tvkctl inspect power`: the machine's batteries, and what it runs on.
#pragma once

#include <iosfwd>

#include "client/battery/battery_info_collector.h"
#include "platform/power.h"

namespace tvkctl {

/// Both write to `out`, in UTF-8: with `json` one object in one line, else lines for people, with units. Both return
/// kExitOk also for a machine that has no battery, and that tells nothing of its power; kExitFailed, with a line to
/// `errors`, when the system did not tell of its batteries in time.

/// Each battery by the keys of its dataset context and its item events, its serial number hashed; "no battery" when
/// there is none.
int RunInspectBattery(bool json, BatteryInfoCollector& batteries, std::ostream& out, std::ostream& errors);

/// Source, percentage, level, and whether a battery is being charged. What is not told is left out, in JSON null. The
/// object has the batteries, too, as RunInspectBattery shows them.
int RunInspectPower(bool json, platform::Power& power, BatteryInfoCollector& batteries, std::ostream& out,
                    std::ostream& errors);

}  // namespace tvkctl
