// The service under the service manager of Windows on a machine with a battery: what the manager tells it of power
// becomes records of that battery.
#include <gtest/gtest.h>

#include <algorithm>

#include "platform/windows/scripted_batteries.h"
#include "tests/e2e/battery_service_control_windows.h"
#include "tests/e2e/service_under_test.h"

namespace {

using platform::windows::ScriptedDriver;
using platform::windows::UniqueKernelHandle;
using testing_support::Words;

constexpr char kPolicy[] =
    R"({"telemetryScope": "full", "datasets": [{"id": "4B433ADC-BD40-43E7-85BF-014C8C8128D3", "name": "BatteryEvent",
    "enabled": true, "settings": {"ReadUsageInterval": "1h"}}]})";

class BatteryService : public testing::Test {
 protected:
  BatteryService() {
    folder_.WritePolicy(kPolicy);
    std::vector<std::string> install = folder_.Arguments();
    install.push_back("install");
    Command(install);
  }
  ~BatteryService() override { Command({"uninstall"}); }

  static void Command(const std::vector<std::string>& arguments) {
    EXPECT_EQ(ChildProcess(ProgramBeside("service_with_power_events"), arguments).WaitForEnd(kPatience), 0);
  }

  /// The battery is discharged and holds so much of 50 Wh.
  void SetCharge(std::uint32_t mwh) {
    driver_.Tell(driver_stand_in::kForget);
    AnswerTag(driver_, 1, 7);
    AnswerLevel(driver_, 1, platform::BatteryLevel::kInformation, platform::windows::BatteryInformation(50'000));
    AnswerStatus(driver_, 1, Words({2, mwh, 11'400, static_cast<std::uint32_t>(-10'000)}));
  }

  /// Whether within `limit` the store has so many records with all of `texts`.
  bool Has(std::size_t count, const std::vector<std::string>& texts, std::chrono::seconds limit = kPatience) const {
    return WaitForState(
        [&] {
          const auto records = folder_.Records({.dataset_name = L"BatteryEvent"});
          return count == static_cast<std::size_t>(std::ranges::count_if(records, [&](const auto& record) {
                   return std::ranges::all_of(
                       texts, [&](const auto& text) { return record.json.find(text) != record.json.npos; });
                 }));
        },
        limit);
  }

  const ServiceFolder folder_;
  ScriptedDriver driver_{true};
};

TEST_F(BatteryService, NewsOfPowerBecomesRecordsOfTheBattery) {
  const UniqueKernelHandle unplugged(CreateEventW(nullptr, FALSE, FALSE, kUnpluggedEvent));
  const UniqueKernelHandle percentage(CreateEventW(nullptr, FALSE, FALSE, kPercentageEvent));
  SetCharge(25'000);
  Command({"start"});
  EXPECT_TRUE(
      WaitForState([&] { return folder_.CountInLog("BatteryEventMonitor.log", "BatteryFlag=") == 1; }, kPatience))
      << "the look of the start";
  EXPECT_TRUE(Has(1, {R"("TVKBATTERY-0001")", R"("DesignChargeCapacity":"57000")"}));
  SetCharge(2'000);
  EXPECT_TRUE(SetEvent(unplugged.get()));
  EXPECT_TRUE(SetEvent(percentage.get()));
  EXPECT_TRUE(Has(1, {R"("BatteryNearEmpty")", R"("BatteryChargeRemaining":"4")", R"("RemainingTime":"720")"}));
  EXPECT_TRUE(Has(0, {R"("DisconnectFromAC")"}, std::chrono::seconds(0)));
  EXPECT_TRUE(Has(1, {R"("DisconnectFromAC")", R"("ChargeStatus":"0")", R"("RemainingCapacity":"2000")"},
                  std::chrono::seconds(60)));
  Command({"stop"});
}

}  // namespace
