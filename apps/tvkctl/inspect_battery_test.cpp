#include "apps/tvkctl/inspect_battery.h"

#include <gtest/gtest.h>

#include <sstream>
#include <tuple>

#include "client/battery/battery_item_data.h"
#include "client/machine/machine_services.h"
#include "client/text/string.h"
#include "platform/local.h"
#include "platform/simulated/simulated_batteries.h"
#include "platform/simulated/simulated_firmware.h"
#include "platform/simulated/simulated_machine.h"
#include "platform/simulated/simulated_power.h"
#include "testing/battery_blocks.h"
#include "testing/log_capture.h"

namespace tvkctl {
namespace {

using namespace testing_support;
using platform::BatteryFacts;

constexpr char kSerial[] = "S3CRET0815";

/// A machine whose maker's power software tells of the batteries, too.
class InspectBatteryTest : public testing::Test {
 protected:
  InspectBatteryTest() {
    machine_.firmware().Change([](auto& state) { state.facts.product_family = "Orbit 5"; });
  }
  std::string Battery(bool json) {
    std::ostringstream out;
    TVK::MachineServices services(machine_, *runtime_);
    EXPECT_EQ(RunInspectBattery(json, services.batteries, out, out), 0);
    return out.str();
  }
  std::string Power(bool json) {
    std::ostringstream out;
    TVK::MachineServices services(machine_, *runtime_);
    EXPECT_EQ(RunInspectPower(json, machine_.power(), services.batteries, out, out), 0);
    return out.str();
  }

  LogCapture lines_;
  const std::unique_ptr<platform::Runtime> runtime_ = platform::MakeRealRuntime({});
  platform::SimulatedMachine machine_;
};

TEST_F(InspectBatteryTest, ShowsEachBatteryAsTheRecordsHaveIt) {
  machine_.batteries().Set({{.slot = "BAT0",
                             .number = 0,
                             .name = "Pack\x1b[2J",
                             .design_mwh = 57'000,
                             .remaining_mwh = 9'000,
                             .percent = 17,
                             .state = platform::ChargeState::kDischarging,
                             .on_ac = false,
                             .remaining_time = std::chrono::seconds(3599)},
                            {.slot = "BAT1", .state = platform::ChargeState::kCharging}});
  machine_.power_manager().Set({.driver = {{{0x83102138, 0}, EmUsageBlock()}}});
  EXPECT_EQ(Battery(false),
            "DesignChargeCapacity          57000 mWh\n"
            "DeviceName                    Pack.[2J\n"
            "Id                            BAT0\n"
            "AC/DC mode                    DC\n"
            "BatteryChargeRemaining        17%\n"
            "ChargeStatus                  0 (discharging)\n"
            "CycleCount                    200\n"
            "HoursAtFullCharge             203 h\n"
            "HoursAtFullChargeAndHighTemp  205 h\n"
            "HoursAtHighTemp               204 h\n"
            "RemainingCapacity             9000 mWh\n"
            "RemainingTime                 3599 s\n"
            "TotalBatteryAwakeHrs          202 h\n"
            "TotalChargedCapacity          201 Wh\n"
            "\n"
            "Id            BAT1\n"
            "ChargeStatus  1 (charging)\n");
  machine_.power_manager().Set({});
  EXPECT_EQ(Battery(true),
            R"({"batteries":[{"AC/DC mode":"DC","BatteryChargeRemaining":"17","ChargeStatus":"0",)"
            R"("DesignChargeCapacity":"57000","DeviceName":"Pack\u001b[2J","Id":"BAT0","RemainingCapacity":"9000",)"
            R"("RemainingTime":"3599"},{"ChargeStatus":"1","Id":"BAT1"}]})"
            "\n");
  machine_.batteries().Set({});
  EXPECT_EQ(Battery(false), "no battery\n");
  EXPECT_EQ(Battery(true), "{\"batteries\":[]}\n");
}

TEST_F(InspectBatteryTest, HoldsNoSerialNumberInClearWhateverTheSource) {
  const std::string hash = TVK::String::UTF16ToUTF8(BatteryInfo::GetHashedString(L"S3CRET0815"));
  const std::string faulty = std::string("Battery=1,") + kSerial + "\nUsage=2024-05-31,120,812\nUsage=" + kSerial +
                             "\nBattery=" + kSerial + "\nBattery=" + kSerial +
                             ",2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17";
  const std::string no_text = kSerial + std::string("\xFF");
  for (const char* const source : {"system", "driver", "library", "all"}) {
    SCOPED_TRACE(source);
    const auto is = [&](std::string_view name) { return source == name || source == std::string_view("all"); };
    machine_.batteries().Set({{.slot = "BAT0", .number = 0, .serial_number = is("system") ? kSerial : ""}});
    platform::PowerManagerScript script;
    if (is("driver")) script.driver = {{{0x831020F8, 0}, EmIdentityBlock(kSerial)}};
    if (is("library")) {
      script.smart_batteries = {
          {1, {.status_block = SmartStatusBlock(), .information_block = SmartInformationBlock(kSerial)}}};
    }
    script.logs = {.logs = {{.name = "a.PWM", .bytes = faulty.size(), .text = faulty},
                            {.name = "b.PWM", .bytes = no_text.size(), .text = no_text},
                            {.name = std::string(kSerial) + ".PWM", .bytes = 0}},
                   .refusal = 5};
    machine_.power_manager().Set(script);
    lines_.Clear();
    for (const bool json : {false, true}) {
      const std::string shown = Battery(json);
      EXPECT_EQ(shown.find("S3CRET"), shown.npos) << shown;
      EXPECT_NE(shown.find(hash), shown.npos) << shown;
      EXPECT_NE(shown.find("812"), shown.npos) << shown;
    }
    EXPECT_EQ(lines_.Count(L"mFileTool::"), 2 * 5u);
    EXPECT_FALSE(lines_.Has(L"S3CRET"));
  }
}

TEST_F(InspectBatteryTest, ShowsThePower) {
  machine_.batteries().Set({{.slot = "BAT1", .state = platform::ChargeState::kCharging}});
  using enum platform::PowerSource;
  using enum platform::ChargeLevel;
  for (const auto& [status, json, text] : {
           std::tuple(platform::PowerStatus{.source = kAc, .percent = 87, .level = kHigh, .charging = true},
                      R"("charging":true,"level":"high","percentage":87,"source":"AC"})",
                      "source      AC\npercentage  87%\nlevel       high\ncharging    yes\n"),
           {{.source = kBattery, .percent = 20, .level = kLow},
            R"("charging":false,"level":"low","percentage":20,"source":"battery"})",
            "source      battery\npercentage  20%\nlevel       low\ncharging    no\n"},
           {{.source = kShortTerm, .level = kCritical},
            R"("charging":false,"level":"critical","percentage":null,"source":"UPS"})",
            "source    UPS\nlevel     critical\ncharging  no\n"},
           {{},
            R"("charging":false,"level":null,"percentage":null,"source":null})",
            "source    not told\ncharging  no\n"},
       }) {
    machine_.power().Set(status);
    EXPECT_EQ(Power(true), R"({"batteries":[{"ChargeStatus":"1","Id":"BAT1"}],)" + std::string(json) + '\n');
    EXPECT_EQ(Power(false), text);
  }
}

}  // namespace
}  // namespace tvkctl
