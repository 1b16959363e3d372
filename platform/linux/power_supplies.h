// The power supplies of a machine.
#pragma once

#include <vector>

#include "platform/linux/power_supply_text.h"
#include "platform/linux/sysroot.h"

namespace platform {

/// By name; batteries with their slot, which is that name, and their path. Any thread.
std::vector<PowerSupply> ReadPowerSupplies(const Sysroot& root);

}  // namespace platform
