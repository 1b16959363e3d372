#include "client/battery/em_battery_info.h"

#include <algorithm>

#include "client/battery/battery_info.h"
#include "client/battery/battery_properties.h"
#include "client/log/wide_format.h"
#include "platform/battery_text.h"
#include "platform/little_endian.h"

namespace TVK {
namespace {

constexpr std::array kConditions = {L"Normal", L"Performance Degradation", L"Unsupported"};

std::optional<_EM_BATTERY_INFO::Id> Id(const BatteryBlock& block, std::size_t at) {
  _EM_BATTERY_INFO::Id id{};
  const auto field = block.Bytes(at, id.size());
  for (const int never_given : {0x00, 0xFF}) {
    if (std::ranges::count(field, never_given) == std::ssize(field)) return std::nullopt;  // or the field is absent
  }
  std::ranges::copy(field, id.begin());
  return id;
}

std::optional<std::chrono::year_month_day> Date(const BatteryBlock& block, std::size_t at) {
  const auto field = block.Bytes(at, 4);
  if (field.empty()) return std::nullopt;
  return platform::BatteryDate(platform::LittleEndianAt<std::uint16_t>(field, 0), field[2], field[3]);
}

std::wstring IdText(const _EM_BATTERY_INFO::Id& id) {
  return FormatWide(L"%02X%02X-%02X%02X-%02X%02X-%02X%02X", id[0], id[1], id[2], id[3], id[4], id[5], id[6], id[7]);
}

}  // namespace

void DecodeEmIdentity(std::span<const std::uint8_t> block, _EM_BATTERY_INFO& info) {
  const BatteryBlock fields(block);
  info.hardware_id = Id(fields, 0);
  info.firmware_id = Id(fields, 8);
  info.manufactured = Date(fields, 16);
  info.first_used = Date(fields, 20);
  info.design_mwh = fields.PositiveNumber(24);
  info.label = DecodeBatteryLabel(fields, 28);
}

void DecodeEmCondition(std::span<const std::uint8_t> block, _EM_BATTERY_INFO& info) {
  const BatteryBlock fields(block);
  const auto condition = fields.Number(0);
  info.condition = condition < kConditions.size() ? condition : std::nullopt;
  info.full_mwh = fields.PositiveNumber(4);
  info.remaining_mwh = fields.Number(8);
}

void DecodeEmUsage(std::span<const std::uint8_t> block, _EM_BATTERY_INFO& info) {
  info.counters = DecodeBatteryCounters(BatteryBlock(block), 0);
}

void Describe(const _EM_BATTERY_INFO& info, BatteryInfo& battery) {
  if (info.hardware_id) battery.set_batteryHwid(IdText(*info.hardware_id));
  if (info.firmware_id) battery.set_batteryFwVersion(IdText(*info.firmware_id));
  Describe(battery, &BatteryInfo::set_batteryManufactureDate, info.manufactured);
  Describe(battery, &BatteryInfo::set_batteryFirstUseDate, info.first_used);
  Describe(battery, &BatteryInfo::set_batteryDesignChargeCapacity, info.design_mwh);
  Describe(info.label, battery);
  if (info.condition) battery.set_batteryCondition(kConditions.at(*info.condition));
  Describe(battery, &BatteryInfo::set_batteryFullChargeCapacity, info.full_mwh);
  Describe(battery, &BatteryInfo::set_batteryRemainingCapacity, info.remaining_mwh);
  Describe(info.counters, battery);
  battery.set_EmBatteryInfo(info);
}

}  // namespace TVK
