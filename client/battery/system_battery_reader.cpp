#include "client/battery/battery_properties.h"
#include "client/battery/battery_source.h"
#include "platform/batteries.h"

namespace TVK {
namespace {

using platform::BatteryFacts;
using platform::ChargeState;

BatteryInfo ToBatteryInfo(const BatteryFacts& facts) {
  BatteryInfo info;
  Describe(info, &BatteryInfo::set_batteryId, facts.slot);
  info.set_number(facts.number);
  Describe(info, &BatteryInfo::set_batteryDevicePath, facts.path);
  Describe(info, &BatteryInfo::set_batteryDeviceName, facts.name);
  Describe(info, &BatteryInfo::set_batteryManufactureName, facts.manufacturer);
  Describe(info, &BatteryInfo::set_batteryChemistry, facts.chemistry);
  Describe(info, &BatteryInfo::set_batterySerialNumber, facts.serial_number);
  Describe(info, &BatteryInfo::set_batteryManufactureDate, facts.manufactured);
  Describe(info, &BatteryInfo::set_batteryDesignChargeCapacity, facts.design_mwh);
  Describe(info, &BatteryInfo::set_batteryFullChargeCapacity, facts.full_mwh);
  Describe(info, &BatteryInfo::set_batteryRemainingCapacity, facts.remaining_mwh);
  Describe(info, &BatteryInfo::set_batteryBatteryChargeRemaining, facts.percent);
  if (facts.state == ChargeState::kCharging) info.set_batteryChargeStatus(L"1");
  if (facts.state == ChargeState::kDischarging) info.set_batteryChargeStatus(L"0");
  if (facts.on_ac) info.set_batteryAcDcMode(*facts.on_ac ? L"AC" : L"DC");
  if (facts.remaining_time) info.set_batteryRemainingTime(std::to_wstring(facts.remaining_time->count()));
  Describe(info, &BatteryInfo::set_batteryCycleCount, facts.cycles);
  return info;
}

}  // namespace

std::list<BatteryInfo> GetBatteryInfoFromSystem(const std::vector<BatteryFacts>& batteries) {
  std::list<BatteryInfo> list;
  for (const BatteryFacts& facts : batteries)
    list.push_back(ToBatteryInfo(facts));
  return list;
}

}  // namespace TVK
