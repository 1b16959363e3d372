#include "client/battery/smart_battery_status.h"

#include <algorithm>

#include "client/battery/battery_date.h"
#include "client/battery/battery_info.h"
#include "client/battery/battery_properties.h"
#include "client/log/wide_format.h"

namespace TVK {
namespace {

/// The part of a block that the library says that it filled.
BatteryBlock Filled(std::span<const std::uint8_t> block) {
  const std::size_t bytes = BatteryBlock(block).Number(0).value_or(0);
  return BatteryBlock(block.first(std::min(bytes, block.size())));
}

std::optional<bool> YesOrNo(std::optional<std::uint32_t> number) {
  return number && *number <= 1 ? std::optional(*number == 1) : std::nullopt;
}

}  // namespace

SmartBatteryStatus DecodeSmartBatteryStatus(std::span<const std::uint8_t> status_block,
                                            std::span<const std::uint8_t> information_block) {
  const BatteryBlock status = Filled(status_block);
  const BatteryBlock information = Filled(information_block);
  return {.status_bits = status.Number(4),
          .full_mwh = status.PositiveNumber(8),
          .remaining_mwh = status.Number(12),
          .counters = DecodeBatteryCounters(status, 16),
          .warranty_valid = YesOrNo(information.Number(4)),
          .design_mwh = information.PositiveNumber(8),
          .manufactured = ParseBatteryDate(information.Text(12, 16)),
          .first_used = ParseBatteryDate(information.Text(28, 16)),
          .warranty = information.Text(44, 32),
          .label = DecodeBatteryLabel(information, 76)};
}

std::wstring SmartBatteryCondition(std::uint32_t status_bits) {
  switch (status_bits) {
    case 0x00:
      return L"Normal";
    case 0x01:
      return L"Permanent Error";
    case 0x02:
      return L"Unsupported";
    case 0x04:
      return L"High Temperature";
    case 0x08:
      return L"Trickle Charge";
    case 0x10:
      return L"Overheated";
    default:
      return FormatWide(L"Abnormal%x", status_bits);
  }
}

void Describe(const SmartBatteryStatus& status, BatteryInfo& battery) {
  if (status.status_bits) battery.set_batteryCondition(SmartBatteryCondition(*status.status_bits));
  Describe(battery, &BatteryInfo::set_batteryFullChargeCapacity, status.full_mwh);
  Describe(battery, &BatteryInfo::set_batteryRemainingCapacity, status.remaining_mwh);
  Describe(status.counters, battery);
  if (status.warranty_valid) battery.set_batteryValidWarranty(*status.warranty_valid ? L"true" : L"false");
  Describe(battery, &BatteryInfo::set_batteryDesignChargeCapacity, status.design_mwh);
  Describe(battery, &BatteryInfo::set_batteryManufactureDate, status.manufactured);
  Describe(battery, &BatteryInfo::set_batteryFirstUseDate, status.first_used);
  Describe(battery, &BatteryInfo::set_batteryWarranty, status.warranty);
  Describe(status.label, battery);
}

}  // namespace TVK
