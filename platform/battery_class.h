// How a driver of Windows' battery class is asked and what it answers, as bytes, and what its slot is called. The codes
// and layouts are those of poclass.h and of Microsoft's pages "IOCTL_BATTERY_QUERY_TAG", "..._INFORMATION" and
// "..._STATUS". Nothing of an answer is believed before it is checked against the bytes that came. Pure but for `ask`;
// any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/batteries.h"
#include "platform/driver_answer.h"

namespace platform {

inline constexpr std::uint32_t kBatteryQueryTag = 0x294040;          ///< IOCTL_BATTERY_QUERY_TAG
inline constexpr std::uint32_t kBatteryQueryInformation = 0x294044;  ///< IOCTL_BATTERY_QUERY_INFORMATION
inline constexpr std::uint32_t kBatteryQueryStatus = 0x29404C;       ///< IOCTL_BATTERY_QUERY_STATUS

/// BATTERY_QUERY_INFORMATION_LEVEL: what is asked with kBatteryQueryInformation.
enum class BatteryLevel : std::uint32_t {
  kInformation = 0,
  kEstimatedTime = 3,
  kDeviceName = 4,
  kManufactureDate = 5,
  kManufactureName = 6,
  kSerialNumber = 8,
};

/// Sends a request with a control code to the driver of one slot; `size` bytes at most come back.
using AskBattery =
    std::function<DriverAnswer(std::uint32_t code, std::span<const std::uint8_t> request, std::size_t size)>;

/// The battery in the slot, without slot and path. Nothing while the slot is empty or its driver does not answer, and
/// for what does not power the machine itself: the battery of a mouse, an uninterruptible supply. No question waits for
/// a change. A level that the driver refuses is a fact that is not told. A battery that changes meanwhile is read once
/// more from its begin, so that nothing of two is mixed.
std::optional<BatteryFacts> ReadBattery(const AskBattery& ask);

/// One name for each slot of a machine, each once, made of its device interface path (UTF-8, in any case):
/// "\\?\acpi#pnp0c0a#1#{72631e54-...}" is "PNP0C0A-1". What a bus tells of a device can be its serial number: that part
/// is in the name only where the system made it up, or the firmware or the system counts.
std::vector<std::string> BatterySlots(std::span<const std::string> paths);

}  // namespace platform
