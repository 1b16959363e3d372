#include "monitors/devices/battery_event_monitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>

#include "client/store/failing_disk.h"
#include "client/text/string.h"
#include "platform/simulated/simulated_batteries.h"
#include "platform/simulated/simulated_firmware.h"
#include "platform/simulated/simulated_power.h"
#include "platform/system_event.h"
#include "testing/battery_blocks.h"
#include "testing/monitor_world.h"

namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only
using platform::BatteryFacts;
using platform::BatteryPercent;
using platform::ChargeLevel;
using platform::ChargeState;
using platform::PowerSource;
using platform::PowerStatus;
using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::wstring>;

BatteryFacts Battery(const char* slot, const char* serial_number = "SECRET-1") {
  return {.slot = slot,
          .number = static_cast<std::uint32_t>(slot[3] - '0'),
          .path = std::string("/sys/class/power_supply/") + slot,
          .name = "M1",
          .manufacturer = "Contoso",
          .chemistry = "Li-ion",
          .serial_number = serial_number,
          .manufactured = std::chrono::year(2024) / 5 / 3,
          .design_mwh = 50'000,
          .full_mwh = 45'000,
          .remaining_mwh = 20'000,
          .percent = 44,
          .state = ChargeState::kDischarging,
          .on_ac = false,
          .remaining_time = 4000s,
          .cycles = 7};
}

class BatteryEventMonitorTest : public testing::Test {
 protected:
  BatteryEventMonitorTest() {
    world_.config.SetPolicy(
        MakePolicy(L"full", {{BatteryEventMonitor::dataset_id, BatteryEventMonitor::dataset_name}}));
    SetSettings({{L"ReadUsageInterval", L"1h"}});
    world_.machine.batteries().Set({Battery("BAT0")});
  }
  ~BatteryEventMonitorTest() override {
    monitor_.reset();
    EXPECT_TRUE(world_.runtime.Threads().empty());
  }

  void SetSettings(std::map<std::wstring, std::wstring> settings) {
    world_.config.SetSettings(BatteryEventMonitor::dataset_name, std::move(settings));
    if (monitor_) (*monitor_)->ReadAndUpdateDatasetSettings();
  }
  /// Another run of the service on the same records; the look at what the batteries hold at its start is over.
  void Start(bool with_consent = true) {
    monitor_.reset();
    life_.emplace(world_);
    life_->consent.given = with_consent;
    life_->manager.first_invocation = first_invocation_;
    monitor_.emplace(world_.runtime, std::make_unique<BatteryEventMonitor>(life_->services()));
    world_.runtime.AdvanceBy(2s);
  }
  void Tell(const platform::SystemEvent& event) { (*monitor_)->OnSystemEvent(event); }
  /// The batteries change to this, and the system tells of it.
  void SetCharge(std::uint32_t percent, ChargeState state) {
    world_.machine.batteries().Change([&](auto& batteries) {
      for (BatteryFacts& battery : batteries) {
        battery.percent = percent;
        battery.state = state;
      }
    });
    Tell(BatteryPercent{percent});
    world_.runtime.AdvanceBy(1s);
  }
  Texts Items() const {
    Texts names;
    for (const ItemEvent& item : life_->Items())
      names.push_back(item.item_name());
    return names;
  }
  /// The news on the bus since the last call, "topic state".
  Texts News() {
    Texts news;
    for (const TVKNotificationData& one : life_->news.Take())
      news.push_back(std::to_wstring(one.getTopicId()) + L' ' + std::to_wstring(one.getEventState()) +
                     one.getPayload());
    return news;
  }

  MonitorWorld world_;
  bool first_invocation_ = false;
  std::optional<ServiceLife> life_;
  std::optional<RunningMonitor> monitor_;
};

TEST_F(BatteryEventMonitorTest, ABatteryIsDescribedOnceAndItsItemsSayHowItIs) {
  BatteryFacts bare{.slot = "BAT1"};
  world_.machine.batteries().Set({Battery("BAT0"), bare});
  Start();
  const std::vector<DatasetContext> contexts = life_->DatasetContexts();
  ASSERT_EQ(contexts.size(), 2u);
  EXPECT_EQ(contexts[0].item_data(), (ItemData{{L"Id", L"BAT0"},
                                               {L"DeviceName", L"M1"},
                                               {L"Manufacturer", L"Contoso"},
                                               {L"Chemistry", L"Li-ion"},
                                               {L"SerialNumber", BatteryInfo::GetHashedString(L"SECRET-1")},
                                               {L"ManufactureDate", L"2024-05-03"},
                                               {L"DesignChargeCapacity", L"50000"}}));
  EXPECT_EQ(contexts[1].item_data(), (ItemData{{L"Id", L"BAT1"}})) << "nothing is invented";
  EXPECT_EQ(contexts[0].source() + L' ' + contexts[0].dataset_type(), L"tvk/battery system-activity");
  world_.runtime.AdvanceBy(1h);
  const std::vector<ItemEvent> items = life_->Items(L"BatteryUsagePerInterval");
  ASSERT_EQ(items.size(), 2u);
  EXPECT_EQ(items[0].item_data(), (ItemData{{L"ChargeStatus", L"0"},
                                            {L"AC/DC mode", L"DC"},
                                            {L"BatteryChargeRemaining", L"44"},
                                            {L"RemainingCapacity", L"20000"},
                                            {L"FullChargeCapacity", L"45000"},
                                            {L"CycleCount", L"7"},
                                            {L"RemainingTime", L"4000"}}));
  EXPECT_EQ(items[1].item_data(), ItemData());
  EXPECT_NE(items[0].dataset_context_id(), items[1].dataset_context_id());
  EXPECT_TRUE(world_.logs.Has(L"battery(0) can be used for 01:06"));
  Start();
  EXPECT_THAT(life_->DatasetContexts(), IsEmpty()) << "the same batteries";
  EXPECT_FALSE(world_.logs.Has(L"SECRET"));
}

TEST_F(BatteryEventMonitorTest, ABatteryInThePlaceOfAnotherIsDescribedBeforeItsItems) {
  Start();
  world_.machine.batteries().Set({Battery("BAT0", "SECRET-2")});
  Tell(BatteryPercent{44});
  world_.runtime.AdvanceBy(1s);
  ASSERT_EQ(life_->DatasetContexts().size(), 2u);
  world_.runtime.AdvanceBy(1h);
  ASSERT_EQ(life_->Items().size(), 1u);
  EXPECT_EQ(life_->Items()[0].dataset_context_id(), life_->DatasetContexts()[1].dataset_context_id());
  world_.machine.batteries().Set({});
  world_.runtime.AdvanceBy(1h);
  EXPECT_EQ(life_->Items().size(), 1u) << "it was taken out";
  world_.machine.batteries().Set({Battery("BAT0", "SECRET-2")});
  world_.runtime.AdvanceBy(1h);
  EXPECT_EQ(life_->DatasetContexts().size(), 2u) << "it is back";
  EXPECT_EQ(life_->Items().size(), 2u);
  world_.machine.batteries().Set({Battery("BAT0")});
  world_.runtime.AdvanceBy(1h);
  ASSERT_EQ(life_->Items().size(), 3u);
  EXPECT_EQ(life_->DatasetContexts().size(), 2u) << "the first one was in there before";
  EXPECT_EQ(life_->Items()[2].dataset_context_id(), life_->DatasetContexts()[0].dataset_context_id());
  world_.machine.batteries().Set({Battery("BAT0", "")});
  world_.runtime.AdvanceBy(1h);
  ASSERT_EQ(life_->Items().size(), 4u);
  EXPECT_EQ(life_->Items()[3].dataset_context_id(), life_->DatasetContexts()[0].dataset_context_id())
      << "what is not told is no other battery";
  BatteryInfo unknown;
  unknown.set_batteryId(L"BAT7");
  auto& monitor = static_cast<BatteryEventMonitor&>(**monitor_);
  EXPECT_NE(monitor.LogItemEvent(L"ConnectToAC", unknown), 0);
  EXPECT_TRUE(
      world_.logs.Has(L"BatteryEventMonitor LogItemEvent(ConnectToAC) Battery Id: \"BAT7\" can NOT be found in "
                      L"batteryDatasetContextIdMap!"));
}

TEST_F(BatteryEventMonitorTest, APlugIsToldAtOnceAndRecordedWhenItHasSettled) {
  Start();
  Tell(PowerSource::kAc);
  EXPECT_THAT(News(), ElementsAre(L"11 11"));
  world_.runtime.AdvanceBy(1min);
  EXPECT_THAT(Items(), IsEmpty()) << "the state of the start, which Windows tells when it is asked to tell changes";
  Tell(PowerSource::kBattery);
  world_.runtime.AdvanceBy(39s);
  Tell(PowerSource::kBattery);
  world_.runtime.AdvanceBy(39s);
  EXPECT_THAT(Items(), IsEmpty());
  world_.runtime.AdvanceBy(1s);
  EXPECT_THAT(Items(), ElementsAre(L"DisconnectFromAC"));
  Tell(PowerSource::kAc);
  world_.runtime.AdvanceBy(20s);
  world_.runtime.Suspend(1h);  // the report of the interval falls due in it
  world_.runtime.AdvanceBy(20s);
  EXPECT_THAT(Items(), ElementsAre(L"DisconnectFromAC", L"BatteryUsagePerInterval", L"ConnectToAC"));
  Tell(PowerSource::kShortTerm);
  world_.runtime.AdvanceBy(10min);
  EXPECT_EQ(Items().size(), 3u);
  EXPECT_THAT(News(), ElementsAre(L"11 12", L"11 12", L"11 11", L"11 12"));
  Tell(PowerSource::kAc);
  world_.runtime.AdvanceBy(10s);
  Tell(PowerSource::kBattery);
  world_.runtime.AdvanceBy(40s);
  EXPECT_EQ(Items().size(), 5u) << "each of the two has a timer of its own";
  world_.runtime.RefuseThreads(true);
  Tell(PowerSource::kAc);
  world_.runtime.AdvanceBy(1min);
  world_.runtime.RefuseThreads(false);
  (*monitor_)->ReadAndUpdateDatasetSettings();
  world_.runtime.AdvanceBy(1s);
  EXPECT_EQ(Items().size(), 6u) << "as the manager asks for what the system refused";
  world_.runtime.RefuseThreads(true);
  Tell(PowerSource::kBattery);
  world_.runtime.AdvanceBy(1min);
  world_.runtime.RefuseThreads(false);
  Tell(PowerSource::kAc);
  world_.runtime.AdvanceBy(1min);
  ASSERT_EQ(Items().size(), 8u);
  EXPECT_EQ(Items()[6] + L' ' + Items()[7], L"DisconnectFromAC ConnectToAC") << "in their order, before it asks";
  Tell(PowerSource::kBattery);
  monitor_->Stop();
  world_.runtime.AdvanceBy(1min);
  EXPECT_EQ(Items().size(), 8u) << "a stop takes back what is armed";
  monitor_.reset();
}

TEST_F(BatteryEventMonitorTest, WhatIsToldWhileItRegistersIsThePresentStateAndNoChange) {
  for (const bool on_another_thread : {false, true}) {
    SCOPED_TRACE(on_another_thread);
    monitor_.reset();
    life_.emplace(world_);
    world_.machine.batteries().Change([](auto& batteries) {
      batteries.front().percent = 95;
      batteries.front().state = ChargeState::kCharging;
    });
    auto made = std::make_unique<BatteryEventMonitor>(life_->services());
    world_.machine.power().on_registration = [&, monitor = made.get()](platform::PowerSetting setting) {
      const auto tell = [=] {
        for (int times = 0; times < 2; ++times) {
          if (setting == platform::PowerSetting::kPowerSource) monitor->OnSystemEvent(PowerSource::kAc);
          if (setting == platform::PowerSetting::kBatteryPercent) monitor->OnSystemEvent(BatteryPercent{95});
        }
      };
      if (!on_another_thread) return tell();
      std::thread thread = world_.runtime.StartThread("teller", tell);
      world_.runtime.Join(thread);
    };
    monitor_.emplace(world_.runtime, std::move(made));
    world_.runtime.AdvanceBy(1min);
    EXPECT_THAT(News(), ElementsAre(L"11 11", L"11 11"));
    EXPECT_THAT(Items(), ElementsAre(L"BatteryNearFull")) << "once, and nothing of a plug";
    Tell(PowerSource::kBattery);
    world_.runtime.AdvanceBy(1min);
    EXPECT_THAT(Items(), ElementsAre(L"BatteryNearFull", L"DisconnectFromAC"));
  }
}

TEST_F(BatteryEventMonitorTest, ADayOfPluggingIsRecordedWhole) {
  Start();
  for (int i = 0; i < 12; ++i) {
    Tell(PowerSource::kBattery);
    SetCharge(5, ChargeState::kDischarging);
    world_.runtime.AdvanceBy(1h);
    Tell(PowerSource::kAc);
    SetCharge(95, ChargeState::kCharging);
    world_.runtime.AdvanceBy(1h);
  }
  const auto count = [&](const wchar_t* name) { return life_->Items(name).size(); };
  EXPECT_EQ(count(L"ConnectToAC"), 12u);
  EXPECT_EQ(count(L"DisconnectFromAC"), 12u);
  EXPECT_EQ(count(L"BatteryNearEmpty"), 12u);
  EXPECT_EQ(count(L"BatteryNearFull"), 12u);
  EXPECT_EQ(count(L"BatteryUsagePerInterval"), 24u);
}

TEST_F(BatteryEventMonitorTest, ALimitThatIsKeptIsToldOnceUntilThePlugChanges) {
  world_.machine.batteries().Set({Battery("BAT0"), Battery("BAT1", "SECRET-2")});
  Start();
  SetCharge(11, ChargeState::kDischarging);
  EXPECT_THAT(Items(), IsEmpty());
  SetCharge(10, ChargeState::kCharging);
  EXPECT_THAT(Items(), IsEmpty()) << "it is on its way up";
  SetCharge(10, ChargeState::kDischarging);
  EXPECT_THAT(Items(), ElementsAre(L"BatteryNearEmpty", L"BatteryNearEmpty"));
  SetCharge(9, ChargeState::kDischarging);
  SetCharge(89, ChargeState::kCharging);
  SetCharge(90, ChargeState::kIdle);
  SetCharge(90, ChargeState::kDischarging);
  EXPECT_EQ(Items().size(), 2u);
  SetCharge(90, ChargeState::kCharging);
  SetCharge(91, ChargeState::kCharging);
  EXPECT_EQ(life_->Items(L"BatteryNearFull").size(), 2u);
  // Plugging in sets the one latch, unplugging the other.
  Tell(PowerSource::kShortTerm);
  Tell(PowerSource::kAc);
  world_.runtime.AdvanceBy(40s);
  SetCharge(5, ChargeState::kDischarging);
  EXPECT_EQ(life_->Items(L"BatteryNearEmpty").size(), 2u);
  SetCharge(95, ChargeState::kCharging);
  EXPECT_EQ(life_->Items(L"BatteryNearFull").size(), 4u);
  Tell(PowerSource::kBattery);
  world_.runtime.AdvanceBy(40s);
  SetCharge(95, ChargeState::kCharging);
  EXPECT_EQ(life_->Items(L"BatteryNearFull").size(), 4u);
  SetCharge(5, ChargeState::kDischarging);
  EXPECT_EQ(life_->Items(L"BatteryNearEmpty").size(), 4u);
  // So does another interval, and a start, which looks without being told.
  SetSettings({{L"ReadUsageInterval", L"1m"}});
  SetCharge(4, ChargeState::kDischarging);
  EXPECT_EQ(life_->Items(L"BatteryNearEmpty").size(), 6u);
  SetSettings({{L"ReadUsageInterval", L"1m"}, {L"BatteryLowThreshold", L"11"}});
  SetCharge(3, ChargeState::kDischarging);
  EXPECT_EQ(life_->Items(L"BatteryNearEmpty").size(), 6u) << "the same interval";
  Start();
  EXPECT_THAT(Items(), ElementsAre(L"BatteryNearEmpty", L"BatteryNearEmpty"));
}

TEST_F(BatteryEventMonitorTest, ALimitIsToldAnewOfAnotherBatteryInTheSamePlace) {
  struct Row {
    const char* serial_number;
    std::uint32_t design_mwh;
    std::size_t told;
    const char* why;
  };
  Start();
  for (const Row& row :
       {Row{"SECRET-1", 50'000, 1, "the first"}, Row{"SECRET-1", 49'000, 1, "another fact of it"},
        Row{"", 49'000, 1, "what is not told is no other battery"},
        Row{"SECRET-1", 49'000, 1, "nor is what is told again"}, Row{"SECRET-2", 49'000, 2, "another one"}}) {
    world_.machine.batteries().Change([&](auto& batteries) {
      batteries[0].serial_number = row.serial_number;
      batteries[0].design_mwh = row.design_mwh;
    });
    SetCharge(5, ChargeState::kDischarging);
    EXPECT_EQ(life_->Items(L"BatteryNearEmpty").size(), row.told) << row.why;
  }
}

TEST_F(BatteryEventMonitorTest, ABatteryThatIsAwayTakesNothingFromItselfOrAnotherOne) {
  const auto both = [] { return std::vector{Battery("BAT0"), Battery("BAT1", "SECRET-2")}; };
  world_.machine.batteries().Set(both());
  Start();
  SetCharge(9, ChargeState::kDischarging);
  EXPECT_EQ(Items(), Texts(2, L"BatteryNearEmpty"));
  world_.machine.batteries().Set({Battery("BAT1", "SECRET-2")});
  SetCharge(8, ChargeState::kDischarging);
  // It is away as the machine is described anew, too.
  (*monitor_)->OnDeviceContextChanges(false);
  world_.machine.batteries().Set(both());
  SetCharge(7, ChargeState::kDischarging);
  EXPECT_EQ(Items(), Texts(2, L"BatteryNearEmpty")) << "the same two";
  world_.runtime.AdvanceBy(1h);
  EXPECT_EQ(life_->Items(L"BatteryUsagePerInterval").size(), 2u);
}

TEST_F(BatteryEventMonitorTest, AutomaticLimitsAreTheSystems) {
  SetSettings({{L"ReadUsageInterval", L"1h"}, {L"BatteryLowThreshold", L"auto"}, {L"BatteryFullThreshold", L"auto"}});
  struct Case {
    std::optional<ChargeLevel> level;
    bool charging;
    ChargeState state;
    const wchar_t* item;
    const wchar_t* flag;
    std::optional<bool> has_battery = true;
  };
  for (const Case& one : {Case{ChargeLevel::kHigh, true, ChargeState::kCharging, L"BatteryNearFull", L"=9,"},
                          Case{ChargeLevel::kHigh, false, ChargeState::kCharging, L"BatteryNearFull", L"=1,"},
                          Case{ChargeLevel::kHigh, false, ChargeState::kDischarging, nullptr, L"=1,"},
                          Case{std::nullopt, true, ChargeState::kCharging, nullptr, L"=8,"},
                          Case{ChargeLevel::kLow, false, ChargeState::kDischarging, L"BatteryNearEmpty", L"=2,"},
                          Case{ChargeLevel::kCritical, false, ChargeState::kDischarging, L"BatteryNearEmpty", L"=4,"},
                          Case{ChargeLevel::kLow, true, ChargeState::kDischarging, nullptr, L"=10,"},
                          Case{std::nullopt, false, ChargeState::kDischarging, nullptr, L"=128,", false},
                          Case{std::nullopt, false, ChargeState::kDischarging, nullptr, L"=255,", std::nullopt},
                          Case{ChargeLevel::kLow, false, ChargeState::kCharging, nullptr, L"=2,"}}) {
    world_.machine.power().Set({.source = PowerSource::kBattery,
                                .percent = 50,
                                .level = one.level,
                                .charging = one.charging,
                                .has_battery = one.has_battery});
    world_.machine.batteries().Change([&](auto& batteries) { batteries[0].state = one.state; });
    Start();
    EXPECT_EQ(Items(), one.item == nullptr ? Texts() : Texts{one.item}) << one.flag;
    EXPECT_TRUE(world_.logs.Has(std::wstring(L"ACLineStatus=0, BatteryFlag") + one.flag + L" BatteryLifePercent=50"));
  }
  EXPECT_TRUE(world_.logs.Has(L"batteryLowThreshold = 0, batteryFullThreshold = 0,"));
}

TEST_F(BatteryEventMonitorTest, SettingsOutOfTheirRangeGiveWay) {
  struct Case {
    const wchar_t* interval;
    const wchar_t* low;
    const wchar_t* full;
    const wchar_t* line;
  };
  for (const Case& one :
       {Case{L"60000ms", L"1", L"80", L"= 60000, batteryLowThreshold = 1, batteryFullThreshold = 80,"},
        Case{L"1d", L"20", L"99", L"= 86400000, batteryLowThreshold = 20, batteryFullThreshold = 99,"},
        Case{L"61s", L"0", L"79", L"= 61000, batteryLowThreshold = 10, batteryFullThreshold = 90,"},
        Case{L"62s", L"21", L"100", L"= 62000, batteryLowThreshold = 10, batteryFullThreshold = 90,"},
        Case{L"63s", L"low", L"AUTO", L"= 63000, batteryLowThreshold = 10, batteryFullThreshold = 90,"}}) {
    SetSettings(
        {{L"ReadUsageInterval", one.interval}, {L"BatteryLowThreshold", one.low}, {L"BatteryFullThreshold", one.full}});
    Start();
    EXPECT_TRUE(world_.logs.Has(one.line)) << one.line;
  }
  EXPECT_TRUE(world_.logs.Has(L"Exception while reading BatteryLowThreshold, \"21\" is above 20; in force: 10"));
  EXPECT_TRUE(
      world_.logs.Has(L"Exception while reading BatteryFullThreshold, \"AUTO\" is no whole number; in force: 90"));
  Start();
  world_.runtime.AdvanceBy(3min);
  EXPECT_EQ(Items().size(), 3u) << "63 s, over the restart";
  SetSettings({{L"ReadUsageInterval", L"59999ms"}});
  world_.runtime.AdvanceBy(3min);
  EXPECT_EQ(Items().size(), 3u);
  EXPECT_TRUE(world_.logs.Has(L"ReadUsageInterval: \"59999ms\" is below 60000ms; in force: none"));
  EXPECT_TRUE(world_.logs.Has(L"Invalid DatasetSettings ReadUsageInterval = 59999"));
  SetCharge(5, ChargeState::kDischarging);
  EXPECT_EQ(Items().size(), 4u) << "and the rest goes on";
}

TEST_F(BatteryEventMonitorTest, ThreeBatteriesAreNotUnderstood) {
  world_.machine.batteries().Set({Battery("BAT0"), Battery("BAT1", "2"), Battery("BAT2", "3")});
  Start();
  Tell(PowerSource::kBattery);
  world_.runtime.AdvanceBy(1h);
  EXPECT_EQ(Items().size() + life_->DatasetContexts().size(), 0u);
  EXPECT_TRUE(world_.logs.Has(L"DelayTimerCallback batteryInfoList.size() > BATTERY_MAX_NUMBER(2)!"));
  EXPECT_TRUE(world_.logs.Has(L"ReadBatteryUsagePerInterval batteryInfoList.size() > BATTERY_MAX_NUMBER(2)!"));
  world_.machine.batteries().Set({Battery("BAT0"), Battery("BAT1", "2")});
  world_.runtime.AdvanceBy(1h);
  EXPECT_EQ(Items().size(), 2u);
  EXPECT_EQ(life_->DatasetContexts().size(), 2u);
}

TEST_F(BatteryEventMonitorTest, ASourceThatHangsHoldsUpNeitherTheOthersNorTheStop) {
  const auto comes_back = world_.runtime.MakeEvent(platform::EventReset::kManual);
  std::atomic<bool> hangs = false;
  std::atomic<int> asked = 0;
  const auto hang = [&] {
    ++asked;
    if (hangs) world_.runtime.Wait(*comes_back, platform::kForever);
  };
  world_.machine.firmware().Change([](auto& state) { state.facts.product_family = "Orbit 5"; });
  world_.machine.power_manager().Set({.driver = {{{0x831020F8, 0}, testing_support::EmIdentityBlock("SECRET-1")}}});
  world_.machine.batteries().on_question = world_.machine.power_manager().on_driver_question = hang;
  Start();
  const std::size_t contexts = life_->DatasetContexts().size();
  SetCharge(5, ChargeState::kDischarging);
  EXPECT_THAT(Items(), ElementsAre(L"BatteryNearEmpty"));
  EXPECT_EQ(asked, 3 * 4);

  hangs = true;
  Tell(PowerSource::kBattery);
  world_.runtime.AdvanceBy(51s);
  SetCharge(4, ChargeState::kDischarging);
  EXPECT_EQ(asked, 3 * 4 + 1) << "no more while it hangs";
  EXPECT_EQ(world_.logs.Count(L"The system's batteries: no answer within 10 s"), 1u);
  hangs = false;
  comes_back->Set();
  SetCharge(4, ChargeState::kDischarging);
  EXPECT_TRUE(world_.logs.Has(L"The system's batteries: it answers again"));
  EXPECT_THAT(Items(), ElementsAre(L"BatteryNearEmpty")) << "what is not known for a while has not changed";

  comes_back->Reset();
  world_.machine.batteries().on_question = {};
  hangs = true;
  Tell(PowerSource::kBattery);
  world_.runtime.AdvanceBy(50s);
  EXPECT_THAT(Items(), ElementsAre(L"BatteryNearEmpty", L"DisconnectFromAC")) << "without the driver";
  EXPECT_EQ(life_->DatasetContexts().size(), contexts) << "what the driver does not tell now is no change";
  comes_back->Set();
  world_.runtime.Settle();
  comes_back->Reset();
  Tell(BatteryPercent{4});
  world_.runtime.AdvanceBy(2s);
  const auto begin = world_.runtime.clock().Steady();
  monitor_->Stop();
  EXPECT_EQ(world_.runtime.clock().Steady(), begin);
  comes_back->Set();
  world_.runtime.Settle();
  monitor_.reset();
}

TEST_F(BatteryEventMonitorTest, WhatFailsAtTheStartIsMadeUpForByTheNextLook) {
  std::atomic<bool> fails = true;
  world_.machine.batteries().on_question = [&] {
    if (fails) throw std::runtime_error("no memory");
  };
  first_invocation_ = true;
  Start();
  EXPECT_EQ(life_->DatasetContexts().size() + Items().size(), 0u);
  EXPECT_TRUE(world_.logs.Has(L"no memory"));
  fails = false;
  SetCharge(5, ChargeState::kDischarging);
  EXPECT_EQ(life_->DatasetContexts().size(), 1u);
  EXPECT_THAT(Items(), ElementsAre(L"DeviceInit", L"BatteryNearEmpty"));
}

TEST_F(BatteryEventMonitorTest, WhatIsWithheldAtTheStartIsMadeUpForWithConsent) {
  first_invocation_ = true;
  Start(false);
  EXPECT_EQ(life_->DatasetContexts().size() + Items().size(), 0u);
  life_->consent.given = true;
  SetCharge(5, ChargeState::kDischarging);
  EXPECT_EQ(life_->DatasetContexts().size(), 1u);
  EXPECT_THAT(Items(), ElementsAre(L"DeviceInit", L"BatteryNearEmpty"));
}

TEST_F(BatteryEventMonitorTest, WhatTheSystemRefusesKeepsNothingElse) {
  world_.machine.power().refused = platform::PowerSetting::kPowerSource;
  std::atomic<bool> withdraws = false;
  world_.machine.batteries().on_question = [&] {
    if (withdraws) life_->consent.given = false;
  };
  Start();
  EXPECT_TRUE(world_.logs.Has(L"StartMonitor Register GUID_ACDC_POWER_SOURCE fail!"));
  EXPECT_FALSE(world_.logs.Has(L"Register GUID_BATTERY_PERCENTAGE_REMAINING fail!"));
  EXPECT_EQ(world_.machine.power().registered(), 1u) << "what the system grants is kept while the monitor runs";
  withdraws = true;
  SetCharge(5, ChargeState::kDischarging);
  EXPECT_THAT(Items(), IsEmpty()) << "consent was withdrawn while the batteries were read";
  withdraws = false;
  life_->consent.given = true;
  SetCharge(5, ChargeState::kDischarging);
  EXPECT_THAT(Items(), ElementsAre(L"BatteryNearEmpty")) << "what was withheld is still due";
  life_->consent.given = false;
  Tell(PowerSource::kBattery);
  world_.runtime.AdvanceBy(1h);
  EXPECT_THAT(Items(), ElementsAre(L"BatteryNearEmpty")) << "nothing without consent";
}

TEST_F(BatteryEventMonitorTest, WhatTheStoreRefusesIsSaidAndALimitStaysDue) {
  TVK::FailingDisk disk;
  Start();
  world_.machine.batteries().Set({Battery("BAT0", "SECRET-2")});
  disk.FailAt(1, SQLITE_FULL, true);
  SetCharge(5, ChargeState::kDischarging);
  for (const wchar_t* line : {L"BatteryEventMonitor LogDatasetContext LogDatasetContext() return error: 13",
                              L"BatteryEventMonitor LogItemEvent(BatteryNearEmpty) return error: 13",
                              L"BatteryEventMonitor DelayTimerCallback batteryChargeRemaining: 5%, isAcOn: true, "
                              L"bIsNeedReportNearFull[0]: 1, "
                              L"bIsNeedReportNearEmpty[0]: 1"}) {
    EXPECT_TRUE(world_.logs.Has(line)) << TVK::String::UTF16ToUTF8(line);
  }
  disk.FailAt(0, 0, false);
  EXPECT_THAT(Items(), IsEmpty());
  SetCharge(4, ChargeState::kDischarging);
  EXPECT_THAT(Items(), ElementsAre(L"BatteryNearEmpty"));
  EXPECT_TRUE(world_.logs.Has(L"bIsNeedReportNearEmpty[0]: 0"));
  world_.machine.batteries().Set({Battery("BAT0", "SECRET-2"), Battery("BAT1", "SECRET-3")});
  first_invocation_ = true;
  monitor_.reset();
  disk.FailAt(1, SQLITE_FULL, true);
  Start();
  EXPECT_TRUE(world_.logs.Has(L"Battery LogDevInitEvent failed"));
  disk.FailAt(0, 0, false);
  monitor_.reset();
  life_.reset();
}

TEST_F(BatteryEventMonitorTest, TheRemainingTimeIsThatOfWhatTheBatteryDoes) {
  struct Row {
    std::chrono::seconds time;
    ChargeState state;
    const wchar_t* line;  ///< Behind "battery(0) "; none when nothing is to be said.
  };
  for (const Row& row :
       {Row{3600s, ChargeState::kCharging, L"takes 01:00 to fill up"},
        Row{3599s, ChargeState::kCharging, L"takes 59 minutes to fill up"},
        Row{7320s, ChargeState::kDischarging, L"can be used for 02:02"},
        Row{540s, ChargeState::kDischarging, L"can be used for 09 minutes"}, Row{540s, ChargeState::kIdle, nullptr}}) {
    world_.logs.Clear();
    world_.machine.batteries().Change([&](auto& batteries) {
      batteries[0].remaining_time = row.time;
      batteries[0].state = row.state;
    });
    Start();
    EXPECT_EQ(world_.logs.Count(L"DelayTimerCallback battery(0) "), row.line == nullptr ? 0u : 1u);
    if (row.line != nullptr) {
      EXPECT_TRUE(world_.logs.Has(std::wstring(L"battery(0) ") + row.line)) << TVK::String::UTF16ToUTF8(row.line);
    }
  }
}

}  // namespace
