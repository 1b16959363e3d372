#include "client/battery/battery_block.h"

#include <algorithm>

#include "client/battery/battery_info.h"
#include "client/battery/battery_properties.h"
#include "platform/battery_text.h"
#include "platform/drive_text.h"
#include "platform/little_endian.h"

namespace TVK {

std::span<const std::uint8_t> BatteryBlock::Bytes(std::size_t at, std::size_t size) const {
  if (at > bytes_.size() || size > bytes_.size() - at) return {};
  return bytes_.subspan(at, size);
}

std::optional<std::uint32_t> BatteryBlock::Number(std::size_t at) const {
  constexpr std::uint32_t kUnknown = 0xFFFFFFFF;
  const auto field = Bytes(at, sizeof kUnknown);
  if (field.empty()) return std::nullopt;
  const auto number = platform::LittleEndianAt<std::uint32_t>(field, 0);
  return number == kUnknown ? std::nullopt : std::optional(number);
}

std::optional<std::uint32_t> BatteryBlock::PositiveNumber(std::size_t at) const {
  const auto number = Number(at);
  return number == 0u ? std::nullopt : number;
}

std::string BatteryBlock::Text(std::size_t at, std::size_t size) const {
  const auto field = Bytes(at, size);
  return platform::DriveText({field.begin(), std::ranges::find(field, 0)});
}

BatteryLabel DecodeBatteryLabel(const BatteryBlock& block, std::size_t at) {
  BatteryLabel label{.serial_number = block.Text(at, 32),
                     .manufacturer = block.Text(at + 32, 32),
                     .device_name = block.Text(at + 64, 32),
                     .chemistry = block.Text(at + 96, 16)};
  for (std::string* const text : {&label.manufacturer, &label.device_name, &label.chemistry})
    if (platform::IsFillerText(*text)) text->clear();
  if (platform::IsFillerSerialNumber(label.serial_number)) label.serial_number.clear();
  return label;
}

BatteryCounters DecodeBatteryCounters(const BatteryBlock& block, std::size_t at) {
  return {.cycles = block.PositiveNumber(at),
          .charged_wh = block.Number(at + 4),
          .awake_hours = block.Number(at + 8),
          .full_charge_hours = block.Number(at + 12),
          .high_temperature_hours = block.Number(at + 16),
          .full_charge_high_temperature_hours = block.Number(at + 20)};
}

void Describe(const BatteryLabel& label, BatteryInfo& battery) {
  Describe(battery, &BatteryInfo::set_batterySerialNumber, label.serial_number);
  Describe(battery, &BatteryInfo::set_batteryManufactureName, label.manufacturer);
  Describe(battery, &BatteryInfo::set_batteryDeviceName, label.device_name);
  Describe(battery, &BatteryInfo::set_batteryChemistry, label.chemistry);
}

void Describe(const BatteryCounters& counters, BatteryInfo& battery) {
  Describe(battery, &BatteryInfo::set_batteryCycleCount, counters.cycles);
  Describe(battery, &BatteryInfo::set_batteryTotalChargedCapacity, counters.charged_wh);
  Describe(battery, &BatteryInfo::set_batteryTotalBatteryAwakeHrs, counters.awake_hours);
  Describe(battery, &BatteryInfo::set_batteryHoursAtFullCharge, counters.full_charge_hours);
  Describe(battery, &BatteryInfo::set_batteryHoursAtHighTemp, counters.high_temperature_hours);
  Describe(battery, &BatteryInfo::set_batteryHoursAtFullChargeAndHighTemp, counters.full_charge_high_temperature_hours);
}

}  // namespace TVK
