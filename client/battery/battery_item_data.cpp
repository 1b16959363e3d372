#include "client/battery/battery_item_data.h"

#include <span>
#include <string>

namespace TVK {
namespace {

struct Entry {
  const wchar_t* key;
  const std::wstring& (BatteryInfo::*get)() const;
};

constexpr Entry kContextEntries[] = {
    {L"DeviceName", &BatteryInfo::batteryDeviceName},
    {L"Manufacturer", &BatteryInfo::batteryManufactureName},
    {L"FirstUseDate", &BatteryInfo::batteryFirstUseDate},
    {L"Id", &BatteryInfo::batteryId},
    {L"Chemistry", &BatteryInfo::batteryChemistry},
    {L"Hwid", &BatteryInfo::batteryHwid},
    {L"FwVersion", &BatteryInfo::batteryFwVersion},
    {L"DesignChargeCapacity", &BatteryInfo::batteryDesignChargeCapacity},
    {L"ManufactureDate", &BatteryInfo::batteryManufactureDate},
    {L"ValidWarranty", &BatteryInfo::batteryValidWarranty},
    {L"Warranty", &BatteryInfo::batteryWarranty},
};

constexpr Entry kItemEntries[] = {
    {L"ChargeStatus", &BatteryInfo::batteryChargeStatus},
    {L"AC/DC mode", &BatteryInfo::batteryAcDcMode},
    {L"BatteryChargeRemaining", &BatteryInfo::batteryBatteryChargeRemaining},
    {L"RemainingCapacity", &BatteryInfo::batteryRemainingCapacity},
    {L"FullChargeCapacity", &BatteryInfo::batteryFullChargeCapacity},
    {L"CycleCount", &BatteryInfo::batteryCycleCount},
    {L"RemainingTime", &BatteryInfo::batteryRemainingTime},
    {L"TotalChargedCapacity", &BatteryInfo::batteryTotalChargedCapacity},
    {L"TotalBatteryAwakeHrs", &BatteryInfo::batteryTotalBatteryAwakeHrs},
    {L"HoursAtFullCharge", &BatteryInfo::batteryHoursAtFullCharge},
    {L"HoursAtHighTemp", &BatteryInfo::batteryHoursAtHighTemp},
    {L"HoursAtFullChargeAndHighTemp", &BatteryInfo::batteryHoursAtFullChargeAndHighTemp},
    {L"Condition", &BatteryInfo::batteryCondition},
};

void Put(ItemData& data, const wchar_t* key, const std::wstring& value) {
  if (!value.empty() && value != BatteryInfo::kUnknown) data.emplace(key, value);
}

ItemData Collect(const BatteryInfo& battery, std::span<const Entry> entries) {
  ItemData data;
  for (const Entry& entry : entries)
    Put(data, entry.key, (battery.*entry.get)());
  return data;
}

}  // namespace

ItemData BatteryContextItemData(const BatteryInfo& battery) {
  ItemData data = Collect(battery, kContextEntries);
  Put(data, L"SerialNumber", BatteryInfo::GetHashedString(battery.batterySerialNumber()));
  return data;
}

ItemData BatteryItemData(const BatteryInfo& battery) {
  return Collect(battery, kItemEntries);
}

}  // namespace TVK
