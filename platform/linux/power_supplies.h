// The power supplies of a machine.
#pragma once

#include <vector>

#include "platform/linux/power_supply_text.h"
#include "platform/linux/sysroot.h"

namespace platform {

/// What one reading of all supplies tells.
struct PowerReading {
  PowerStatus status = {};
  bool has_adapter = false;  ///< There is one, plugged or not.
  /// By name; with their slot, which is that name, their path and on_ac.
  std::vector<BatteryFacts> batteries = {};
};

/// Any thread.
PowerReading ReadPower(const Sysroot& root);

}  // namespace platform
