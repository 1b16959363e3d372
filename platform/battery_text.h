// What firmware writes where a battery has nothing to tell. Pure; any thread.
#pragma once

#include <string_view>

#include "platform/batteries.h"

namespace platform {

/// Words as "Unknown" or "Not Specified", in any case.
bool IsFillerText(std::string_view text);
/// Such words, and zeros alone.
bool IsFillerSerialNumber(std::string_view text);

/// Empties the texts of `facts` that stand for nothing.
void DropFillers(BatteryFacts& facts);

}  // namespace platform
