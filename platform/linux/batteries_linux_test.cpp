// Batteries and other power supplies as the kernel's files tell of them, and when they must be looked at.
#include <gtest/gtest.h>

#include <functional>

#include "platform/batteries.h"
#include "platform/linux/battery_poll.h"
#include "platform/local.h"
#include "platform/power.h"
#include "platform/simulated/virtual_runtime.h"
#include "testing/recorded_tree.h"

namespace platform {
namespace {

/// A literal with the zero bytes in it.
template <std::size_t N>
std::string Bytes(const char (&text)[N]) {
  return std::string(text, N - 1);
}

using namespace std::chrono_literals;

constexpr char kFolder[] = "/sys/class/power_supply/";

/// A machine with these files below that folder.
class MachineOf {
 public:
  explicit MachineOf(const std::vector<RecordedTree::File>& files) {
    for (const auto& [file, content] : files)
      tree_.Write(kFolder + file, content);
  }
  Machine& operator*() { return *machine_; }
  Machine* operator->() { return machine_.get(); }

 private:
  RecordedTree tree_;
  VirtualRuntime runtime_;
  std::unique_ptr<Machine> machine_ = OpenLocalMachine({.sysroot = tree_.root()}, runtime_.clock());
};

/// The lines of a notice, from "STATUS=Full\n...".
std::string Uevent(const std::string& properties) {
  std::string text = "DEVTYPE=power_supply\n";
  for (std::size_t from = 0; from < properties.size();) {
    const std::size_t end = std::min(properties.find('\n', from), properties.size());
    text += "POWER_SUPPLY_" + properties.substr(from, end - from) + "\n";
    from = end + 1;
  }
  return text;
}

TEST(PowerSupplyTest, SuppliesComeToOneStatus) {
  using Supply = std::string;
  const Supply mains_on = "TYPE=Mains\nONLINE=1";
  const Supply mains_off = "TYPE=Mains\nONLINE=0";
  const Supply battery = "TYPE=Battery\nSTATUS=Discharging\nCAPACITY=40";
  const Supply small = "TYPE=Battery\nSTATUS=Charging\nCAPACITY=90\nENERGY_FULL=10000000";
  const Supply large = "TYPE=Battery\nSTATUS=Full\nCAPACITY=50\nCHARGE_FULL=3000000\nVOLTAGE_MIN_DESIGN=10000000";
  const Supply mouse = "TYPE=Battery\nCAPACITY=3\nSTATUS=Discharging\nSCOPE=Device";
  using enum PowerSource;
  struct Row {
    std::vector<Supply> supplies;
    std::optional<PowerSource> source;
    std::optional<std::uint32_t> percent;
    bool charging = false;
  };
  const Row rows[] = {
      {{}, {}, {}},
      {{mains_on, battery}, kAc, 40},
      {{mains_off, battery}, kBattery, 40},
      {{mains_off, "TYPE=USB_PD\nONLINE=2", battery}, kAc, 40},
      {{mains_off, "TYPE=USB\nONLINE=1\nSCOPE=Device", battery}, kBattery, 40},
      {{mains_off, "TYPE=Wireless\nONLINE=1"}, kAc, {}},
      {{mains_off, large}, kBattery, 50},
      {{battery}, kBattery, 40},
      {{large}, kAc, 50},
      {{small}, kAc, 90, true},
      {{small, large}, kAc, 60, true},
      {{large, "TYPE=Battery\nCAPACITY=51"}, kAc, 51},
      {{mouse}, {}, {}},
      {{mouse, mains_off}, kAc, {}},
      {{"TYPE=UPS\nSTATUS=Discharging", mains_on}, kShortTerm, {}},
      {{"TYPE=UPS\nSTATUS=Charging"}, kAc, {}},
      {{"TYPE=Battery\nCAPACITY=101\n\n=\nonline=1"}, {}, {}},
      {{"ONLINE=1"}, {}, {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(&row - rows);
    std::vector<RecordedTree::File> files;
    for (const Supply& supply : row.supplies)
      files.emplace_back("S" + std::to_string(files.size()) + "/uevent", Uevent(supply));
    const PowerStatus status = MachineOf(files)->power().ReadStatus();
    EXPECT_EQ(status.source, row.source);
    EXPECT_EQ(status.percent, row.percent);
    EXPECT_EQ(status.charging, row.charging);
    const bool tells_nonsense = &row == &rows[std::size(rows) - 2];  // and is there all the same
    EXPECT_EQ(status.has_battery, row.percent.has_value() || tells_nonsense);
  }
}

TEST(PowerSupplyTest, TheLevelHasTheLimitsOfWindows) {
  using Level = std::optional<ChargeLevel>;
  for (const auto& [percent, level] :
       {std::pair("67", Level(ChargeLevel::kHigh)), std::pair("66", Level()), std::pair("33", Level()),
        std::pair("32", Level(ChargeLevel::kLow)), std::pair("5", Level(ChargeLevel::kLow)),
        std::pair("4", Level(ChargeLevel::kCritical)), std::pair("x", Level())}) {
    MachineOf machine({{"BAT0/uevent", Uevent(std::string("TYPE=Battery\nCAPACITY=") + percent)}});
    EXPECT_EQ(machine->power().ReadStatus().level, level) << percent;
  }
}

TEST(BatteriesLinuxTest, ABatteryIsDescribedWithWhatTheKernelTells) {
  using std::chrono::June;
  using std::chrono::seconds;
  const BatteryFacts whole{.slot = "BAT0",
                           .path = std::string(kFolder) + "BAT0",
                           .name = "CELL-57A",
                           .manufacturer = "Acme",
                           .chemistry = "Li-poly",
                           .serial_number = "00427",
                           .design_mwh = 50500,
                           .full_mwh = 47310,
                           .remaining_mwh = 36120,
                           .percent = 76,
                           .state = ChargeState::kDischarging,
                           .on_ac = false,
                           .remaining_time = seconds(13003),
                           .cycles = 213};
  const std::string text =
      "TYPE=Battery\nSTATUS=Discharging\nPRESENT=1\nTECHNOLOGY=Li-poly\nCYCLE_COUNT=213\nVOLTAGE_MIN_DESIGN=11520000\n"
      "VOLTAGE_NOW=12000000\nPOWER_NOW=10000000\nENERGY_FULL_DESIGN=50500000\nENERGY_FULL=47310000\n"
      "ENERGY_NOW=36120000\nCAPACITY=76\nMODEL_NAME=CELL-57A   \nMANUFACTURER=Acme\nSERIAL_NUMBER=00427\n";
  struct Row {
    const char* what;
    std::string first;  ///< Lines that count instead of those in `text`.
    std::function<void(BatteryFacts&)> change;
  };
  const auto nothing = [](BatteryFacts&) {};
  const std::string charges =
      "ENERGY_FULL_DESIGN=\nENERGY_FULL=\nENERGY_NOW=\nPOWER_NOW=\nCHARGE_FULL_DESIGN=4000000\nCHARGE_FULL=3500000\n"
      "CHARGE_NOW=1750000\nCURRENT_NOW=-500000\nCAPACITY=50\n";
  const auto at_millivolts = [](std::uint32_t millivolts) {
    return [millivolts](BatteryFacts& facts) {
      facts.design_mwh = 4000 * millivolts / 1000;
      facts.full_mwh = 3500 * millivolts / 1000;
      facts.remaining_mwh = 1750 * millivolts / 1000;
      facts.percent = 50;
      facts.remaining_time = seconds(12600);
    };
  };
  const auto time = [](std::optional<seconds> length) {
    return [length](BatteryFacts& facts) { facts.remaining_time = length; };
  };
  const auto state = [](std::optional<ChargeState> now, std::optional<seconds> length = {}) {
    return [=](BatteryFacts& facts) {
      facts.state = now;
      facts.remaining_time = length;
    };
  };
  const auto nameless = [](BatteryFacts& facts) {
    facts.name = facts.manufacturer = facts.chemistry = facts.serial_number = "";
  };
  const Row rows[] = {
      {"energies", "", nothing},
      {"charges, at the voltage it was designed for", charges, at_millivolts(11520)},
      {"the highest of two", "VOLTAGE_MAX_DESIGN=12600000\n" + charges, at_millivolts(12600)},
      {"at the present one, but not the design", "VOLTAGE_MIN_DESIGN=3300\n" + charges,
       [&](BatteryFacts& facts) {
         at_millivolts(12000)(facts);
         facts.design_mwh = std::nullopt;
       }},
      {"charges without a voltage", "VOLTAGE_MIN_DESIGN=\nVOLTAGE_NOW=0\n" + charges,
       [](BatteryFacts& facts) {
         facts.design_mwh = facts.full_mwh = facts.remaining_mwh = std::nullopt;
         facts.percent = 50;
         facts.remaining_time = {};
       }},
      {"both: energies count", "CHARGE_FULL_DESIGN=1\nCHARGE_FULL=2\nCHARGE_NOW=3", nothing},
      {"full", "STATUS=Full", state(ChargeState::kIdle)},
      {"held at a limit", "STATUS=Not charging", state(ChargeState::kIdle)},
      {"unknown", "STATUS=Unknown", state({})},
      {"charging", "STATUS=Charging", state(ChargeState::kCharging, seconds(4028))},
      {"the driver's times", "STATUS=Charging\nTIME_TO_FULL_NOW=3600\nTIME_TO_EMPTY_NOW=60",
       state(ChargeState::kCharging, seconds(3600))},
      {"until it is empty", "TIME_TO_FULL_NOW=3600\nTIME_TO_EMPTY_NOW=60", time(seconds(60))},
      {"an average", "TIME_TO_EMPTY_AVG=7200", time(seconds(7200))},
      {"65535 minutes: unknown, so computed", "TIME_TO_EMPTY_AVG=3932100", nothing},
      {"from the current, away from the battery", "POWER_NOW=0\nCURRENT_NOW=-1000000", time(seconds(10836))},
      {"no current", "POWER_NOW=0\nCURRENT_NOW=0", time({})},
      {"a trickle", "POWER_NOW=100", time({})},
      {"no percentage", "CAPACITY=", nothing},
      {"beyond the whole", "CAPACITY=104", nothing},
      {"none that was filled in", "CAPACITY=0", nothing},
      {"nothing but a percentage", "ENERGY_FULL_DESIGN=0\nENERGY_FULL=0\nENERGY_NOW=0",
       [](BatteryFacts& facts) {
         facts.design_mwh = facts.full_mwh = facts.remaining_mwh = std::nullopt;
         facts.remaining_time = {};
       }},
      {"empty", "CAPACITY=0\nENERGY_NOW=0",
       [](BatteryFacts& facts) {
         facts.percent = facts.remaining_mwh = 0;
         facts.remaining_time = {};
       }},
      {"not told what remains", "ENERGY_NOW=0",
       [](BatteryFacts& facts) {
         facts.remaining_mwh = 35956;
         facts.remaining_time = seconds(12944);
       }},
      {"fuller than ever", "ENERGY_NOW=48000000\nCAPACITY=101\nSTATUS=Charging",
       [](BatteryFacts& facts) {
         facts.remaining_mwh = facts.full_mwh = 48000;
         facts.percent = 100;
         facts.state = ChargeState::kCharging;
         facts.remaining_time = {};
       }},
      {"firmware that knows nothing",
       "ENERGY_FULL_DESIGN=4294967295000\nENERGY_FULL=99999999999999999999\nENERGY_NOW=-1",
       [](BatteryFacts& facts) {
         facts.design_mwh = facts.full_mwh = facts.remaining_mwh = std::nullopt;
         facts.remaining_time = {};
       }},
      {"cycles that nobody counts", "CYCLE_COUNT=0", [](BatteryFacts& facts) { facts.cycles = {}; }},
      {"nor these", "CYCLE_COUNT=65535", [](BatteryFacts& facts) { facts.cycles = {}; }},
      {"names of nothing", "MODEL_NAME=   \nMANUFACTURER=Not Specified\nTECHNOLOGY=Unknown\nSERIAL_NUMBER=0000",
       nameless},
      {"bytes of nothing", Bytes("MODEL_NAME=\0\0\nMANUFACTURER=\xFF\xFF\nTECHNOLOGY=\nSERIAL_NUMBER= 0\0\0"),
       nameless},
      {"made", "MANUFACTURE_YEAR=2024\nMANUFACTURE_MONTH=6\nMANUFACTURE_DAY=2",
       [](BatteryFacts& facts) { facts.manufactured = 2024y / June / 2; }},
      {"made on no day", "MANUFACTURE_YEAR=2024\nMANUFACTURE_MONTH=6\nMANUFACTURE_DAY=31", nothing},
      {"made never", "MANUFACTURE_YEAR=1979\nMANUFACTURE_MONTH=6\nMANUFACTURE_DAY=2", nothing},
  };
  for (const Row& row : rows) {
    BatteryFacts expected = whole;
    row.change(expected);
    MachineOf machine({{"BAT0/uevent", Uevent(row.first + "\n" + text)},
                       {"BAT0/cycle_count", "7"},  // the notice told it
                       {"AC/uevent", Uevent("TYPE=Mains\nONLINE=0")}});
    EXPECT_EQ(machine->batteries().List(), std::vector{expected}) << row.what;
  }
}

TEST(BatteriesLinuxTest, WhatANoticeDoesNotTellIsInTheFiles) {
  MachineOf machine({{"BAT1/uevent", Uevent("NAME=BAT1")},
                     {"BAT1/type", "Battery\n"},
                     {"BAT1/status", "Full\n"},
                     {"BAT1/energy_full", "20000000\n"},
                     {"BAT1/energy_now", "19900000\n"},
                     {"BAT1/cycle_count", "12\n"},
                     {"BAT1/serial_number", " 3121\n"},
                     {"BAT0/uevent", Uevent("TYPE=Battery\nPRESENT=0\nSTATUS=Unknown")},
                     {"BAT2/type", "Battery"},
                     {"BAT3/type", "Battery"},
                     {"BAT3/scope", "Device\n"},
                     {"UPS/type", "UPS"}});
  const std::vector<BatteryFacts> batteries = machine->batteries().List();
  ASSERT_EQ(batteries.size(), 2u);
  EXPECT_EQ(batteries[0], (BatteryFacts{.slot = "BAT1",
                                        .path = std::string(kFolder) + "BAT1",
                                        .serial_number = "3121",
                                        .full_mwh = 20000,
                                        .remaining_mwh = 19900,
                                        .percent = 99,
                                        .state = ChargeState::kIdle,
                                        .on_ac = true,
                                        .cycles = 12}));
  EXPECT_EQ(batteries[1], (BatteryFacts{.slot = "BAT2", .path = std::string(kFolder) + "BAT2", .on_ac = true}));
}

TEST(BatteryPollTest, ABatteryIsInUseWhileItIsChargedOrDischarged) {
  using enum ChargeState;
  struct Row {
    PowerSource source;
    std::vector<std::optional<ChargeState>> states;
    std::vector<std::optional<bool>> in_use;
    bool has_adapter = true;
  };
  for (const Row& row :
       {Row{PowerSource::kAc, {}, {}}, Row{PowerSource::kAc, {kIdle, {}}, {false, {}}},
        Row{PowerSource::kAc, {kIdle, kCharging}, {false, true}}, Row{PowerSource::kAc, {kDischarging}, {true}},
        Row{PowerSource::kBattery, {kIdle}, {true}}, Row{PowerSource::kBattery, {kIdle, {}}, {true, true}},
        Row{PowerSource::kBattery, {kIdle, kDischarging}, {false, true}}, Row{PowerSource::kAc, {kIdle}, {true}, false},
        Row{PowerSource::kAc, {kIdle, kCharging}, {true, true}, false}}) {
    PowerReading reading{.status = {.source = row.source}, .has_adapter = row.has_adapter};
    for (const auto& state : row.states)
      reading.batteries.push_back({.slot = "BAT" + std::to_string(reading.batteries.size()), .state = state});
    std::vector<std::optional<bool>> in_use;
    for (const auto& [slot, seen] : BatteryPoll::LookOf(reading).batteries)
      in_use.push_back(seen.in_use);
    EXPECT_EQ(in_use, row.in_use) << testing::PrintToString(row.states);
  }
}

TEST(BatteryPollTest, LooksOnlyWhereNobodyElseTells) {
  using enum BatteryPoll::Cause;
  using Seen = BatteryPoll::Seen;
  constexpr auto kBattery = PowerSource::kBattery;
  constexpr auto kAc = PowerSource::kAc;
  struct Step {
    BatteryPoll::Cause cause;
    PowerSource source;
    std::vector<Seen> seen;  ///< "BAT0", "BAT1".
    bool polls;
    std::set<std::string> noticed = {"BAT0"};
    bool looks_again = false;
  };
  struct Row {
    const char* what;
    std::vector<Step> steps;
  };
  for (const Row& row : {
           Row{"full", {{kOther, kAc, {{100, false}}, false}}},
           Row{"no percentage", {{kOther, kBattery, {{{}, true}}, false}}},
           Row{"no state", {{kOther, kBattery, {{50, {}}}, false}}},
           Row{"taken out", {{kOther, kBattery, {{50, true}}, true}, {kNotice, kBattery, {}, false}}},
           Row{"silent for a moment",
               {{kOther, kBattery, {{50, true}}, true},
                {kNotice, kBattery, {{49, true}}, false},
                {kNotice, kBattery, {{{}, {}}}, false},
                {kNotice, kBattery, {{46, true}}, true},
                {kPoll, kBattery, {{{}, {}}}, true}}},
           Row{"a driver that tells",
               {{kOther, kBattery, {{50, true}}, true},
                {kPoll, kBattery, {{50, true}}, true},
                {kNotice, kBattery, {{50, true}}, true, {"BAT0"}, true},
                {kNotice, kBattery, {{49, true}}, false},
                {kOther, kBattery, {{40, true}}, false},
                {kNotice, kBattery, {{39, true}}, false}}},
           Row{"while it charges, too", {{kOther, kAc, {{50, true}}, true}, {kNotice, kAc, {{51, true}}, false}}},
           Row{"the notice was of the source",
               {{kOther, kAc, {{50, true}}, true}, {kNotice, kBattery, {{49, true}}, true}}},
           Row{"the notice was of the charger",
               {{kOther, kAc, {{50, true}}, true},
                {kNotice, kAc, {{51, true}}, true, {"AC"}},
                {kNotice, kBattery, {{51, true}}, true, {"AC"}}}},
           Row{"one of two is silent",
               {{kOther, kBattery, {{50, true}, {90, false}}, true},
                {kNotice, kBattery, {{49, true}, {90, false}}, false},
                {kNotice, kBattery, {{48, true}, {90, true}}, true},
                {kNotice, kBattery, {{47, true}, {89, true}}, true},
                {kNotice, kBattery, {{47, false}, {88, true}}, true, {"BAT0"}, true},
                {kNotice, kBattery, {{47, false}, {87, true}}, false, {"BAT1"}}}},
           Row{"a driver that tells seldom",
               {{kOther, kBattery, {{50, true}}, true},
                {kNotice, kBattery, {{49, true}}, false},
                {kNotice, kBattery, {{45, true}}, true}}},
           Row{"one that stops",
               {{kOther, kBattery, {{50, true}}, true},
                {kNotice, kBattery, {{49, true}}, false},
                {kNotice, kBattery, {{49, false}}, false, {"BAT0"}, true},
                {kOther, kBattery, {{49, false}}, false},
                {kPoll, kBattery, {{48, true}}, true}}},
           Row{"silent at its second look",
               {{kOther, kBattery, {{50, true}}, true},
                {kNotice, kBattery, {{50, false}}, false, {"BAT0"}, true},
                {kPoll, kBattery, {{{}, {}}}, false}}},
           Row{"read before the driver knew",
               {{kOther, kBattery, {{50, true}}, true},
                {kNotice, kBattery, {{50, true}}, true, {"BAT0"}, true},
                {kPoll, kBattery, {{49, true}}, false},
                {kNotice, kBattery, {{49, true}}, false, {"BAT0"}, true},
                {kPoll, kBattery, {{49, true}}, false},
                {kPoll, kBattery, {{48, true}}, true}}},
       }) {
    SCOPED_TRACE(row.what);
    BatteryPoll poll(1min);
    EXPECT_FALSE(poll.due());
    SteadyTime now{};
    for (const Step& step : row.steps) {
      now += 7s;
      BatteryPoll::Look look{.source = step.source};
      for (const Seen& seen : step.seen)
        look.batteries["BAT" + std::to_string(look.batteries.size())] = seen;
      poll.NoteLook(now, step.cause, look, step.noticed);
      std::optional<SteadyTime> due;
      if (step.polls) due = now + 1min;
      if (step.looks_again) due = now + BatteryPoll::kReadingsKept;
      EXPECT_EQ(poll.due(), due) << &step - row.steps.data();
    }
  }
}

}  // namespace
}  // namespace platform
