// What the machine runs on at present, and the wish to be told when that changes. Any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "platform/system_event.h"

namespace platform {

/// How much the batteries hold together, in the system's own words; what lies between low and high has none.
enum class ChargeLevel {
  kHigh,      ///< More than 66 percent.
  kLow,       ///< Less than 33 percent.
  kCritical,  ///< Less than 5 percent.
};

/// A fact that the machine does not tell is absent.
struct PowerStatus {
  std::optional<PowerSource> source = {};
  std::optional<std::uint32_t> percent = {};  ///< Of all batteries together, 0..100; absent without a battery.
  std::optional<ChargeLevel> level = {};      ///< Absent also between low and high.
  bool charging = false;                      ///< A battery is being charged.
  std::optional<bool> has_battery = {};
};

/// What a system can be asked to tell while it changes.
enum class PowerSetting { kPowerSource, kBatteryPercent };

/// One wish to be told; it ends with the object.
class CHPowerNotifyHandle {
 public:
  CHPowerNotifyHandle() = default;
  CHPowerNotifyHandle(const CHPowerNotifyHandle&) = delete;
  CHPowerNotifyHandle& operator=(const CHPowerNotifyHandle&) = delete;
  virtual ~CHPowerNotifyHandle() = default;
};

class Power {
 public:
  Power() = default;
  Power(const Power&) = delete;
  Power& operator=(const Power&) = delete;
  virtual ~Power() = default;

  virtual PowerStatus ReadStatus() = 0;

  /// From now on the changes of `setting` are among the system's events. Null when the system refuses. `service`: the
  /// SERVICE_STATUS_HANDLE of the service whose control handler is to be told, which must outlive the answer; only
  /// Windows looks at it, and refuses a null. The present power source is told at once, and on Windows the present
  /// value of each setting, perhaps before this returns and more than once.
  virtual std::shared_ptr<CHPowerNotifyHandle> Register(PowerSetting setting, void* service) = 0;
};

}  // namespace platform
