#include "apps/tvkctl/inspect_battery.h"

#include <algorithm>
#include <ostream>
#include <string_view>

#include "apps/exit_code.h"
#include "apps/tvkctl/output.h"
#include "client/battery/battery_item_data.h"
#include "client/text/string.h"

namespace tvkctl {
namespace {

using TVK::String;
using Rows = std::vector<std::vector<std::wstring>>;

std::wstring WithUnit(const std::wstring& key, const std::wstring& text) {
  struct Unit {
    std::wstring_view key_end;
    const wchar_t* unit;
  };
  constexpr Unit kUnits[] = {
      {L"TotalChargedCapacity", L" Wh"},
      {L"Capacity", L" mWh"},
      {L"BatteryChargeRemaining", L"%"},
      {L"RemainingTime", L" s"},
      {L"Hrs", L" h"},
      {L"HoursAtFullCharge", L" h"},
      {L"HighTemp", L" h"},
  };
  if (key == L"ChargeStatus") return text + (text == L"1" ? L" (charging)" : L" (discharging)");
  const auto unit = std::ranges::find_if(kUnits, [&](const Unit& one) { return key.ends_with(one.key_end); });
  return unit == std::end(kUnits) ? text : text + unit->unit;
}

Rows ToRows(const BatteryInfo& battery) {
  Rows rows;
  for (const ItemData& data : {TVK::BatteryContextItemData(battery), TVK::BatteryItemData(battery)}) {
    for (const auto& [key, text] : data)
      rows.push_back({key, WithUnit(key, text)});
  }
  return rows;
}

Json::Value ToJson(const std::list<BatteryInfo>& batteries) {
  Json::Value list = Json::arrayValue;
  for (const BatteryInfo& battery : batteries) {
    ItemData data = TVK::BatteryContextItemData(battery);
    data.merge(TVK::BatteryItemData(battery));
    list.append(ItemDataToJson(data));
  }
  return list;
}

int FailForBatteries(std::ostream& errors) {
  errors << "tvkctl: the system does not tell of its batteries in time\n";
  return kExitFailed;
}

const char* Name(platform::PowerSource source) {
  switch (source) {
    case platform::PowerSource::kAc:
      return "AC";
    case platform::PowerSource::kBattery:
      return "battery";
    default:
      return "UPS";
  }
}

const char* Name(platform::ChargeLevel level) {
  switch (level) {
    case platform::ChargeLevel::kHigh:
      return "high";
    case platform::ChargeLevel::kLow:
      return "low";
    default:
      return "critical";
  }
}

}  // namespace

int RunInspectBattery(bool json, BatteryInfoCollector& batteries, std::ostream& out, std::ostream& errors) {
  const auto list = batteries.GetBatteryInfoList();
  if (!list) return FailForBatteries(errors);
  if (json) {
    Json::Value value;
    value["batteries"] = ToJson(*list);
    WriteJsonLine(value, out);
    return kExitOk;
  }
  if (list->empty()) out << "no battery\n";
  for (const BatteryInfo& battery : *list) {
    if (&battery != &list->front()) out << '\n';
    WriteColumns(ToRows(battery), out);
  }
  return kExitOk;
}

int RunInspectPower(bool json, platform::Power& power, BatteryInfoCollector& batteries, std::ostream& out,
                    std::ostream& errors) {
  const platform::PowerStatus status = power.ReadStatus();
  if (json) {
    const auto list = batteries.GetBatteryInfoList();
    if (!list) return FailForBatteries(errors);
    Json::Value value;
    value["source"] = status.source ? Json::Value(Name(*status.source)) : Json::Value();
    value["percentage"] = status.percent ? Json::Value(*status.percent) : Json::Value();
    value["level"] = status.level ? Json::Value(Name(*status.level)) : Json::Value();
    value["charging"] = status.charging;
    value["batteries"] = ToJson(*list);
    WriteJsonLine(value, out);
    return kExitOk;
  }
  Rows rows;
  rows.push_back({L"source", String::UTF8ToUTF16(status.source ? Name(*status.source) : "not told")});
  if (status.percent) rows.push_back({L"percentage", std::to_wstring(*status.percent) + L'%'});
  if (status.level) rows.push_back({L"level", String::UTF8ToUTF16(Name(*status.level))});
  rows.push_back({L"charging", status.charging ? L"yes" : L"no"});
  WriteColumns(rows, out);
  return kExitOk;
}

}  // namespace tvkctl
