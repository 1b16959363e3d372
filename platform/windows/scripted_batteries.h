// What the batteries of a scripted driver answer.
#pragma once

#include "platform/battery_class.h"
#include "platform/windows/scripted_driver.h"
#include "testing/battery_blocks.h"

namespace platform::windows {

/// Each of the battery in a slot, as ScriptedDriver::Answer.
inline void AnswerTag(ScriptedDriver& driver, unsigned slot, std::uint32_t tag, std::uint32_t status = 0) {
  driver.Answer(driver_stand_in::kFirstBattery + slot, kBatteryQueryTag, driver_stand_in::kAnySelector,
                testing_support::Words({tag}), status);
}
inline void AnswerLevel(ScriptedDriver& driver, unsigned slot, BatteryLevel level, const ScriptedDriver::Bytes& bytes,
                        std::uint32_t status = 0) {
  driver.Answer(driver_stand_in::kFirstBattery + slot, kBatteryQueryInformation, static_cast<std::uint32_t>(level),
                bytes, status, false, 4);
}
inline void AnswerStatus(ScriptedDriver& driver, unsigned slot, const ScriptedDriver::Bytes& bytes) {
  driver.Answer(driver_stand_in::kFirstBattery + slot, kBatteryQueryStatus, driver_stand_in::kAnySelector, bytes);
}

/// BATTERY_INFORMATION of one of lithium that was made for 57 Wh, holds `full` mWh and was charged three times.
inline ScriptedDriver::Bytes BatteryInformation(std::uint32_t full) {
  return testing_support::Words({0x80000000, 1, 0x4E4F494C, 57'000, full, 0, 0, 0, 3});
}

}  // namespace platform::windows
