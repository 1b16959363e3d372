// Batteries and the energy-management driver before a driver that answers as the test scripts it, in a prefix of its
// own.
#include "platform/batteries.h"

#include <gtest/gtest.h>

#include <utility>

#include "platform/power_manager.h"
#include "platform/windows/doors_windows.h"
#include "platform/windows/driver_request.h"
#include "platform/windows/scripted_batteries.h"

namespace platform::windows {
namespace {

using Bytes = std::vector<std::uint8_t>;
using driver_stand_in::kAnySelector;
using driver_stand_in::kFirstBattery;
using testing_support::Words;

// NTSTATUS
constexpr std::uint32_t kNoSuchDevice = 0xC000000E;  // ERROR_FILE_NOT_FOUND, on newer systems ERROR_NO_SUCH_DEVICE
constexpr std::uint32_t kNoSuchFile = 0xC000000F;    // ERROR_FILE_NOT_FOUND
constexpr std::uint32_t kIoError = 0xC0000185;

constexpr std::uint32_t kEnergyCode = 0x831020F8;

class BatteriesWindows : public testing::Test {
 protected:
  static void SetUpTestSuite() { driver_ = new ScriptedDriver(true); }
  static void TearDownTestSuite() { delete std::exchange(driver_, nullptr); }
  ~BatteriesWindows() override { driver().Tell(driver_stand_in::kReset); }

  static ScriptedDriver& driver() { return *driver_; }
  /// A battery that charges. Everything else is refused.
  static void Fill(unsigned slot, std::uint32_t tag, std::uint32_t full) {
    AnswerTag(driver(), slot, tag);
    AnswerLevel(driver(), slot, BatteryLevel::kInformation, BatteryInformation(full));
    AnswerStatus(driver(), slot, Words({5, full / 2, 11'400, full}));
  }

  static inline ScriptedDriver* driver_ = nullptr;
  const std::unique_ptr<Batteries> batteries_ = MakeBatteries();
};

BatteryFacts Charging(unsigned slot, std::uint32_t full) {
  const std::string place = "000" + std::to_string(slot);
  return {.slot = "TVKBATTERY-" + place,
          .number = slot,
          .path = R"(\\?\root#tvkbattery#)" + place + "#{72631e54-78a4-11d0-bcf7-00aa00b7b32a}",
          .chemistry = "LION",
          .design_mwh = 57'000,
          .full_mwh = full,
          .remaining_mwh = full / 2,
          .percent = 50,
          .state = ChargeState::kCharging,
          .on_ac = true,
          .remaining_time = std::chrono::seconds(1'800),
          .cycles = 3};
}

// Windows does not say in which case a path is given.
std::vector<BatteryFacts> InSmallLetters(std::vector<BatteryFacts> batteries) {
  for (BatteryFacts& battery : batteries)
    for (char& c : battery.path)
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return batteries;
}

TEST_F(BatteriesWindows, AreThoseOfTheirSlots) {
  const auto list = [&] { return InSmallLetters(batteries_->List()); };
  EXPECT_TRUE(list().empty()) << "whose drivers refuse everything";
  AnswerTag(driver(), 0, 0, kNoSuchFile);
  Fill(1, 7, 50'000);
  EXPECT_EQ(list(), std::vector{Charging(1, 50'000)}) << "beside an empty slot";
  driver().Tell(driver_stand_in::kForget);
  Fill(0, 7, 40'000);
  Fill(1, 7, 50'000);
  AnswerLevel(driver(), 1, BatteryLevel::kDeviceName, {'A', 0, 'B', 0, 0, 0});
  std::vector<BatteryFacts> both = {Charging(0, 40'000), Charging(1, 50'000)};
  both[1].name = "AB";
  EXPECT_EQ(list(), both) << "of equal tags";
}

TEST_F(BatteriesWindows, OneThatHasChangedIsAskedForItsTagAgain) {
  AnswerTag(driver(), 0, 7);
  AnswerLevel(driver(), 0, BatteryLevel::kInformation, {}, kNoSuchDevice);
  Fill(0, 8, 40'000);
  EXPECT_EQ(InSmallLetters(batteries_->List()), std::vector{Charging(0, 40'000)});
  const auto last = driver().LastRequest(kFirstBattery);
  EXPECT_EQ(Bytes(last.bytes, last.bytes + 4), Words({8}));
}

TEST_F(BatteriesWindows, EnergyDriverIsAskedByANumber) {
  const auto power_manager = MakePowerManager();
  EXPECT_EQ(power_manager->QueryEnergyDriver(kEnergyCode, 0), std::nullopt) << "there is none";
  driver().Name(0, L"EnergyDrv");
  EXPECT_EQ(power_manager->QueryEnergyDriver(kEnergyCode, 0), std::nullopt) << "it refuses";
  driver().Answer(0, kEnergyCode, 0x01000001, Bytes(600, 5));
  driver().Answer(0, kEnergyCode, 2, {}, kIoError);
  driver().Answer(0, kEnergyCode, 1, {1, 2, 3});
  EXPECT_EQ(power_manager->QueryEnergyDriver(kEnergyCode, 0x01000001), Bytes(512, 5));
  EXPECT_EQ(power_manager->QueryEnergyDriver(kEnergyCode, 1), (Bytes{1, 2, 3}));
  EXPECT_EQ(driver().LastRequest(0).size, 4u);
  EXPECT_EQ(power_manager->QueryEnergyDriver(kEnergyCode, 2), std::nullopt);
}

TEST_F(BatteriesWindows, DriverThatDoesNotAnswerIsNotWaitedFor) {
  driver().Name(0, L"EnergyDrv");
  driver().Answer(0, kEnergyCode, kAnySelector, Bytes(8, 5), 0, true);
  driver().Answer(0, kEnergyCode, kAnySelector, Bytes(8, 6));
  const UniqueFile device(CreateFileW(LR"(\\.\EnergyDrv)", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                      OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
  ASSERT_TRUE(device);
  const Bytes request(4);
  EXPECT_EQ(AskDriverWithin(1, device.get(), kEnergyCode, request, 8).error, DWORD{ERROR_TIMEOUT});
  driver().Tell(driver_stand_in::kRelease);  // it writes its answer when nobody waits any more
  EXPECT_EQ(AskDriverWithin(10'000, device.get(), kEnergyCode, request, 8).bytes, Bytes(8, 6));
}

}  // namespace
}  // namespace platform::windows
