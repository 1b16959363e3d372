#include "client/battery/battery_info_collector.h"

#include <algorithm>
#include <array>
#include <type_traits>
#include <utility>

#include "client/battery/battery_source.h"
#include "client/identity/machine_information.h"
#include "client/log/service_logs.h"
#include "client/text/string.h"
#include "platform/batteries.h"
#include "platform/power_manager.h"

namespace {

TVK::Log OpenLog() {
  TVK::Log log;
  TVK::utility::InitLog(log, TVK::ServiceLog(L"BatteryInfo.log"), 4);
  return log;
}

constexpr wchar_t kLibrary[] = L"The power manager's library";
constexpr wchar_t kLogFiles[] = L"The power manager's log files";

/// The maker's software, each of its parts asked as long as its lane allows.
class MakersSoftware final : public platform::PowerManager {
 public:
  struct Lanes {
    TVK::SourceLane& driver;
    TVK::SourceLane& library;
    TVK::SourceLane& log_files;
  };

  /// What is given must outlive the object; `stop` may be null.
  MakersSoftware(PowerManager& door, const Lanes& lanes, platform::Waitable* stop)
      : door_(door.shared_from_this()), lanes_(lanes), stop_(stop) {}

  std::optional<std::vector<std::uint8_t>> QueryEnergyDriver(std::uint32_t code, std::uint32_t battery) override {
    return Ask(lanes_.driver, [door = door_, code, battery] { return door->QueryEnergyDriver(code, battery); });
  }
  std::optional<platform::SmartBatteryAnswer> ReadSmartBattery(std::uint32_t battery) override {
    return Ask(lanes_.library, [door = door_, battery] { return door->ReadSmartBattery(battery); });
  }
  std::optional<std::array<std::uint16_t, 4>> ReadFirmwareVersion(std::uint32_t battery) override {
    return Ask(lanes_.library, [door = door_, battery] { return door->ReadFirmwareVersion(battery); });
  }
  platform::PowerManagerLogs ReadLogs(std::uint64_t least, std::uint64_t most) override {
    return Ask(lanes_.log_files, [door = door_, least, most] { return door->ReadLogs(least, most); });
  }

 private:
  template <typename Question, typename Answer = std::invoke_result_t<Question>>
  Answer Ask(TVK::SourceLane& lane, Question question) {
    return lane.Ask<Answer>(std::move(question), stop_).value_or(Answer());
  }

  const std::shared_ptr<PowerManager> door_;
  const Lanes lanes_;
  platform::Waitable* const stop_;
};

}  // namespace

BatteryInfoCollector::BatteryInfoCollector(platform::Runtime& runtime, platform::Batteries& batteries,
                                           platform::PowerManager& power_manager, const MachineInformation& machine)
    : batteries_(batteries),
      power_manager_(power_manager),
      machine_(machine),
      log_(OpenLog()),
      system_lane_(runtime, log_, L"The system's batteries"),
      driver_lane_(runtime, log_, L"The energy-management driver"),
      library_lane_(runtime, log_, kLibrary),
      log_file_lane_(runtime, log_, kLogFiles),
      library_faults_(log_, kLibrary),
      log_file_faults_(log_, kLogFiles) {}

bool BatteryInfoCollector::HasEmDriver() const {
  constexpr std::array<std::wstring_view, 3> kBrands = {L"xelvra", L"nova", L"orbit"};
  constexpr std::array<std::wstring_view, 3> kSubbrands = {L"nova", L"meridian", L"orbit"};
  const std::wstring brand = TVK::String::ToLower(machine_.device_brand());
  const std::wstring subbrand = TVK::String::ToLower(machine_.device_subbrand());
  return std::ranges::find(kBrands, brand) != kBrands.end() ||
         std::ranges::any_of(kSubbrands, [&](std::wstring_view one) { return subbrand.find(one) != subbrand.npos; });
}

std::optional<std::list<BatteryInfo>> BatteryInfoCollector::GetBatteryInfoList(platform::Waitable* stop) {
  const std::lock_guard one_at_a_time(mutex_);
  const auto told = system_lane_.Ask<std::vector<platform::BatteryFacts>>(
      [door = batteries_.shared_from_this()] { return door->List(); }, stop);
  if (!told) return std::nullopt;
  std::list<BatteryInfo> list = TVK::GetBatteryInfoFromSystem(*told);
  if (list.empty() || !power_manager_.IsPossible()) return list;
  MakersSoftware software(power_manager_, {driver_lane_, library_lane_, log_file_lane_}, stop);
  if (HasEmDriver()) TVK::GetBatteryInfoFromEmDriver(software, list);
  TVK::GetBatteryInfoFromPwmLogFile(software, list, log_file_faults_);
  TVK::GetBatteryInfoFromPMDriver(software, list, library_faults_);
  return list;
}
