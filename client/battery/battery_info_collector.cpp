#include "client/battery/battery_info_collector.h"

#include <algorithm>
#include <array>

#include "client/battery/battery_source.h"
#include "client/identity/machine_information.h"
#include "client/text/string.h"

namespace {

TVK::Log OpenLog() {
  TVK::Log log;
  TVK::utility::InitLog(log, L"BatteryInfo.log", 4);
  return log;
}

}  // namespace

BatteryInfoCollector::BatteryInfoCollector(platform::Batteries& batteries, platform::PowerManager& power_manager,
                                           const MachineInformation& machine)
    : batteries_(batteries), power_manager_(power_manager), machine_(machine), log_(OpenLog()) {}

bool BatteryInfoCollector::HasEmDriver() const {
  constexpr std::array<std::wstring_view, 3> kBrands = {L"xelvra", L"nova", L"orbit"};
  constexpr std::array<std::wstring_view, 3> kSubbrands = {L"nova", L"meridian", L"orbit"};
  const std::wstring brand = TVK::String::ToLower(machine_.device_brand());
  const std::wstring subbrand = TVK::String::ToLower(machine_.device_subbrand());
  return std::ranges::find(kBrands, brand) != kBrands.end() ||
         std::ranges::any_of(kSubbrands, [&](std::wstring_view one) { return subbrand.find(one) != subbrand.npos; });
}

bool BatteryInfoCollector::GetBatteryInfoList(std::list<BatteryInfo>& out) {
  const std::lock_guard one_at_a_time(mutex_);
  out = TVK::GetBatteryInfoFromSystem(batteries_);
  if (out.empty()) return false;
  if (HasEmDriver()) {
    auto battery = out.begin();
    for (const BatteryInfo& told : TVK::GetBatteryInfoFromEmDriver(power_manager_, out.size())) {
      battery->Complete(told);
      battery->set_EmBatteryInfo(told.EmBatteryInfo());
      ++battery;
    }
  }
  TVK::GetBatteryInfoFromPwmLogFile(power_manager_, out, log_);
  TVK::GetBatteryInfoFromPMDriver(power_manager_, out, log_);
  return true;
}
