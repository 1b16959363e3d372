// Decoder of the texts in /sys/class/power_supply (the kernel's Documentation/ABI/testing/sysfs-class-power). Pure
// functions; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/power.h"

namespace platform {

/// One power supply.
struct PowerSupply {
  enum class Kind { kOther, kAdapter, kBattery, kUps };

  Kind kind = Kind::kOther;                   ///< Of the machine itself; that of a mouse or a headset counts as other.
  bool online = false;                        ///< An adapter gives power.
  bool discharging = false;                   ///< A battery or an uninterruptible supply gives power.
  std::optional<std::uint32_t> percent = {};  ///< Of a battery, 0..100.
  std::uint64_t full = 0;                     ///< What a battery holds at most, in its own unit; 0: not told.
};

/// From the file "uevent" of a supply. `type` is its file of that name, since kernels before 5.9 do not repeat it.
PowerSupply DecodePowerSupply(std::string_view uevent, std::string_view type);

/// What the supplies of a machine come to. The percentage weighs batteries by what they hold where all tell that.
/// Without any adapter, a battery that is not being discharged stands for one. No supplies: nothing is told.
PowerStatus SumUpPower(const std::vector<PowerSupply>& supplies);

}  // namespace platform
