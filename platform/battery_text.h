// What firmware writes where a battery has nothing to tell. Pure; any thread.
#pragma once

#include "platform/batteries.h"

namespace platform {

/// Empties the texts of `facts` that stand for nothing: words as "Unknown" or "Not Specified", in any case, and a
/// serial number of zeros alone.
void DropFillers(BatteryFacts& facts);

}  // namespace platform
