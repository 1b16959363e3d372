#include "client/battery/battery_date.h"
#include "client/battery/battery_source.h"
#include "client/text/string.h"
#include "platform/batteries.h"

namespace TVK {
namespace {

using platform::BatteryFacts;
using platform::ChargeState;

std::wstring TextOf(const std::string& text) {
  return text.empty() ? BatteryInfo::kUnknown : String::UTF8ToUTF16(text);
}

std::wstring TextOf(const std::optional<std::uint32_t>& number) {
  return number ? std::to_wstring(*number) : BatteryInfo::kUnknown;
}

std::wstring TextOf(const std::optional<ChargeState>& state) {
  if (state == ChargeState::kCharging) return L"1";
  if (state == ChargeState::kDischarging) return L"0";
  return BatteryInfo::kUnknown;
}

BatteryInfo ToBatteryInfo(const BatteryFacts& facts) {
  BatteryInfo info;
  info.set_batteryId(TextOf(facts.slot));
  info.set_batteryDevicePath(TextOf(facts.path));
  info.set_batteryDeviceName(TextOf(facts.name));
  info.set_batteryManufactureName(TextOf(facts.manufacturer));
  info.set_batteryChemistry(TextOf(facts.chemistry));
  info.set_batterySerialNumber(TextOf(facts.serial_number));
  if (facts.manufactured) info.set_batteryManufactureDate(BatteryDateText(*facts.manufactured));
  info.set_batteryDesignChargeCapacity(TextOf(facts.design_mwh));
  info.set_batteryFullChargeCapacity(TextOf(facts.full_mwh));
  info.set_batteryRemainingCapacity(TextOf(facts.remaining_mwh));
  info.set_batteryBatteryChargeRemaining(TextOf(facts.percent));
  info.set_batteryChargeStatus(TextOf(facts.state));
  if (facts.on_ac) info.set_batteryAcDcMode(*facts.on_ac ? L"AC" : L"DC");
  if (facts.remaining_time) info.set_batteryRemainingTime(std::to_wstring(facts.remaining_time->count()));
  info.set_batteryCycleCount(TextOf(facts.cycles));
  return info;
}

}  // namespace

std::list<BatteryInfo> GetBatteryInfoFromSystem(platform::Batteries& batteries) {
  std::list<BatteryInfo> list;
  for (const BatteryFacts& facts : batteries.List())
    list.push_back(ToBatteryInfo(facts));
  return list;
}

}  // namespace TVK
