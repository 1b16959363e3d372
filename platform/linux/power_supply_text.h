// Decoder of the texts in /sys/class/power_supply (the kernel's Documentation/ABI/testing/sysfs-class-power). Pure
// functions; any thread.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/batteries.h"
#include "platform/power.h"

namespace platform {

/// One power supply.
struct PowerSupply {
  enum class Kind { kOther, kAdapter, kBattery, kUps };

  Kind kind = Kind::kOther;  ///< Of the machine itself; that of a mouse or a headset, and an empty slot, are others.
  bool online = false;       ///< An adapter gives power.
  BatteryFacts facts = {};   ///< Of a battery or an uninterruptible supply; without slot, path and on_ac.
};

/// Gives the content of the file of that name in a supply's folder, as "capacity"; empty when there is none.
using AttributeReader = std::function<std::string(const std::string& name)>;

/// From the file "uevent" of a supply. What is missing there (kernels before 5.9 do not repeat the type, and not every
/// driver's notices hold all) is asked from `attribute`. Charges count as the energies that they are at the voltage
/// that the battery was designed for. A remaining time that the driver does not tell is computed from the present rate.
PowerSupply DecodePowerSupply(std::string_view uevent, const AttributeReader& attribute);

/// What the supplies of a machine come to. The percentage weighs batteries by what they hold where all tell that.
/// Without any adapter, batteries of which none is being discharged stand for one. No supplies: nothing is told.
PowerStatus SumUpPower(const std::vector<PowerSupply>& supplies);

}  // namespace platform
