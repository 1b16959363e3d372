#include "platform/battery_class.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <map>
#include <utility>

#include "platform/little_endian.h"
#include "testing/battery_blocks.h"

namespace platform {
namespace {

using testing_support::Words;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kInvalidFunction = 1;
constexpr std::uint32_t kFileNotFound = 2;
constexpr std::uint32_t kNoSuchDevice = 433;
constexpr std::uint32_t kTimeout = 1460;
constexpr std::uint32_t kUnknown = 0xFFFFFFFF;

Bytes Wide(std::u16string_view text) {
  Bytes bytes(text.size() * 2 + 2);
  for (std::size_t i = 0; i < text.size(); ++i)
    PutLittleEndian(bytes, i * 2, std::uint16_t{text[i]});
  return bytes;
}

constexpr std::uint32_t kSystem = 0x80000000;
constexpr std::uint32_t kLion = 0x4E4F494C;

Bytes Information(std::uint32_t capabilities, std::uint32_t design, std::uint32_t full, std::uint32_t cycles) {
  return Words({capabilities, 1, kLion, design, full, 0, 0, 0, cycles});
}
Bytes Status(std::uint32_t state, std::uint32_t capacity, std::uint32_t rate) {
  return Words({state, capacity, 11'400, rate});
}

using Key = std::pair<std::uint32_t, std::uint32_t>;  // a code and its level
constexpr Key kTag{kBatteryQueryTag, 0};
constexpr Key kStatus{kBatteryQueryStatus, 0};
constexpr Key At(BatteryLevel level) {
  return {kBatteryQueryInformation, static_cast<std::uint32_t>(level)};
}

/// A driver that answers a level as scripted, and refuses every other. Each request must be whole, bear the tag that is
/// valid and ask for no wait; `stale` requests later its tag changes, which it says with `stale_error`.
struct Driver {
  std::map<Key, DriverAnswer> answers = {
      {At(BatteryLevel::kInformation), {0, Information(kSystem, 57'000, 50'000, 120)}},
      {At(BatteryLevel::kDeviceName), {0, Wide(u" 5B10W5 ")}},
      {At(BatteryLevel::kManufactureName), {0, Wide(u"\x80\u07FF\u0800\uE000\U00010000\U0010FFFF\xDC00\xD83D")}},
      {At(BatteryLevel::kSerialNumber), {0, Wide(u"SN-1")}},
      {At(BatteryLevel::kManufactureDate), {0, {31, 5, 0xE8, 0x07}}},
      {At(BatteryLevel::kEstimatedTime), {0, Words({5'400})}},
      {kStatus, {0, Status(2, 25'000, static_cast<std::uint32_t>(-12'500))}}};
  std::uint32_t tag = 7;
  std::optional<int> stale = {};
  std::uint32_t stale_error = kNoSuchDevice;
  int asked = 0;

  std::optional<BatteryFacts> Read() {
    return ReadBattery([this](std::uint32_t code, std::span<const std::uint8_t> request, std::size_t size) {
      return Answer(code, request, size);
    });
  }

 private:
  DriverAnswer Answer(std::uint32_t code, std::span<const std::uint8_t> request, std::size_t size) {
    ++asked;
    const auto word = [&](std::size_t at) { return LittleEndianAt<std::uint32_t>(request, at); };
    if (code == kBatteryQueryTag) {
      EXPECT_EQ(Bytes(request.begin(), request.end()), Words({0}));
      const auto scripted = answers.find(kTag);
      return scripted != answers.end() ? scripted->second : DriverAnswer{0, Words({tag})};
    }
    if (stale && (*stale)-- == 0) {
      ++tag;
      *stale = -1;
    }
    if (word(0) != tag) return {stale_error};
    const bool information = code == kBatteryQueryInformation;
    EXPECT_EQ(request.size(), information ? 12u : 20u);
    EXPECT_EQ(information ? word(8) : word(4), 0u) << "the rate, the timeout";
    const auto scripted = answers.find({code, information ? word(4) : 0});
    if (scripted == answers.end()) return {kInvalidFunction};
    EXPECT_GE(size, std::min<std::size_t>(scripted->second.bytes.size(), 256));
    return scripted->second;
  }
};

BatteryFacts Whole() {
  return {.name = "5B10W5",
          .manufacturer = "\u0080\u07FF\u0800\uE000\U00010000\U0010FFFF\uFFFD\uFFFD",
          .chemistry = "LION",
          .serial_number = "SN-1",
          .manufactured = std::chrono::year(2024) / 5 / 31,
          .design_mwh = 57'000,
          .full_mwh = 50'000,
          .remaining_mwh = 25'000,
          .percent = 50,
          .state = ChargeState::kDischarging,
          .on_ac = false,
          .remaining_time = std::chrono::seconds(5'400),
          .cycles = 120};
}

template <class... Members>
auto Without(Members... members) {
  return [=](BatteryFacts& facts) { ((facts.*members = {}), ...); };
}

TEST(BatteryClassTest, EachFactIsToldOrAbsentByItself) {
  using F = BatteryFacts;
  using std::chrono::seconds;
  struct Row {
    const char* what;
    std::map<Key, DriverAnswer> answers;  // in the place of the driver's
    std::function<void(F&)> change;
  };
  const auto lasts = [](int time) { return [=](F& f) { f.remaining_time = seconds(time); }; };
  // On mains; the time until it is full, where it is told.
  const auto mains = [](ChargeState state, std::uint32_t mwh, std::uint32_t percent, std::optional<seconds> time) {
    return [=](F& f) {
      f.state = state, f.on_ac = true, f.remaining_mwh = mwh, f.percent = percent, f.remaining_time = time;
    };
  };
  const auto charging = [&](std::uint32_t mwh, std::uint32_t percent, std::optional<seconds> time) {
    return mains(ChargeState::kCharging, mwh, percent, time);
  };
  const auto info = [](std::uint32_t capabilities, std::uint32_t design, std::uint32_t full, std::uint32_t cycles) {
    return std::pair(At(BatteryLevel::kInformation), DriverAnswer{0, Information(capabilities, design, full, cycles)});
  };
  const auto status = [](std::uint32_t state, std::uint32_t capacity, std::uint32_t rate) {
    return std::pair(kStatus, DriverAnswer{0, Status(state, capacity, rate)});
  };
  const auto date = [](Bytes bytes) { return std::pair(At(BatteryLevel::kManufactureDate), DriverAnswer{0, bytes}); };
  const auto text = [](BatteryLevel level, Bytes bytes) { return std::pair(At(level), DriverAnswer{0, bytes}); };
  const DriverAnswer refused{kInvalidFunction};
  const std::pair no_estimate(At(BatteryLevel::kEstimatedTime), refused);
  constexpr std::uint32_t kDraining = 0xFFFFFF9C;  // -100
  for (const Row& row : {
           Row{"all", {}, Without()},
           Row{"the estimate refused: by the rate", {no_estimate}, lasts(7'200)},
           Row{"no estimate: by the rate", {{no_estimate.first, {0, Words({kUnknown})}}}, lasts(7'200)},
           Row{"neither", {no_estimate, status(2, 25'000, 0x80000000)}, Without(&F::remaining_time)},
           Row{"charged while discharged", {no_estimate, status(2, 25'000, 100)}, Without(&F::remaining_time)},
           Row{"charging", {status(5, 25'000, 50'000)}, charging(25'000, 50, seconds(1'800))},
           Row{"its rate untold", {status(5, 25'000, 0x80000000)}, charging(25'000, 50, {})},
           Row{"charging by nothing", {status(5, 25'000, 0)}, charging(25'000, 50, {})},
           Row{"more than full", {status(5, 51'000, 100)}, charging(51'000, 100, seconds(0))},
           Row{"idle", {status(1, 49'999, 0)}, mains(ChargeState::kIdle, 49'999, 99, {})},
           Row{"contradictory", {status(6, 25'000, 0)}, Without(&F::state, &F::remaining_time)},
           Row{"its charge unknown", {status(2, kUnknown, kDraining)}, Without(&F::remaining_mwh, &F::percent)},
           Row{"empty", {status(2, 0, kDraining)}, [](F& f) { f.remaining_mwh = f.percent = 0; }},
           Row{"no status",
               {{kStatus, refused}},
               Without(&F::remaining_mwh, &F::percent, &F::state, &F::on_ac, &F::remaining_time)},
           Row{"units of its own",
               {info(kSystem | 0x40000000, 100, 80, 120), status(5, 60, 40)},
               [&](F& f) {
                 charging(0, 75, seconds(1'800))(f);
                 f.design_mwh = f.full_mwh = f.remaining_mwh = std::nullopt;
               }},
           Row{"unknown",
               {info(kSystem, kUnknown, kUnknown, 0)},
               Without(&F::design_mwh, &F::full_mwh, &F::percent, &F::cycles)},
           Row{"nothing",
               {info(kSystem, 0, 0, kUnknown)},
               Without(&F::design_mwh, &F::full_mwh, &F::percent, &F::cycles)},
           Row{"no such day", {date({31, 4, 0xE8, 0x07})}, Without(&F::manufactured)},
           Row{"the year 0", {date({1, 1, 0, 0})}, Without(&F::manufactured)},
           Row{"half a date", {date({31, 5, 0xE8})}, Without(&F::manufactured)},
           Row{"a text without an end",
               {text(BatteryLevel::kDeviceName, {0x3D, 0xD8, 0x0B, 0xDD})},
               [](F& f) { f.name = "\U0001F50B"; }},
           Row{"a filler", {text(BatteryLevel::kSerialNumber, Wide(u" 0000"))}, Without(&F::serial_number)},
           Row{"a level refused as if the battery had changed",
               {{At(BatteryLevel::kDeviceName), {kFileNotFound}}},
               Without(&F::name)},
           Row{"a short one", {text(BatteryLevel::kSerialNumber, {'B', 0})}, [](F& f) { f.serial_number = "B"; }},
       }) {
    Driver driver;
    for (const auto& [key, answer] : row.answers)
      driver.answers[key] = answer;
    BatteryFacts expected = Whole();
    row.change(expected);
    EXPECT_EQ(driver.Read(), expected) << row.what;
  }
  Driver reticent;
  std::erase_if(reticent.answers, [&](const auto& answer) { return answer.first != At(BatteryLevel::kInformation); });
  EXPECT_EQ(reticent.Read(), (F{.chemistry = "LION", .design_mwh = 57'000, .full_mwh = 50'000, .cycles = 120}));
}

TEST(BatteryClassTest, OnlyWhatPowersTheMachineCounts) {
  for (const auto& [key, answer] : std::vector<std::pair<Key, DriverAnswer>>{
           {kTag, {kFileNotFound}},                                                  // an empty slot
           {kTag, {0, Words({0})}},                                                  // the same
           {kTag, {0, {1, 0}}},                                                      // no answer
           {At(BatteryLevel::kInformation), {0, Information(0, 1, 1, 1)}},           // a mouse's
           {At(BatteryLevel::kInformation), {0, Information(0xA0000000, 1, 1, 1)}},  // a UPS
           {At(BatteryLevel::kInformation), {0, Bytes(35, 0xFF)}},
           {At(BatteryLevel::kInformation), {kInvalidFunction}}}) {
    Driver driver;
    driver.answers[key] = answer;
    EXPECT_EQ(driver.Read(), std::nullopt) << testing::PrintToString(answer.bytes);
  }
}

TEST(BatteryClassTest, OneThatChangesIsReadOnceMoreAsAWhole) {
  for (const std::uint32_t error : {kFileNotFound, kNoSuchDevice}) {
    for (int question = 0; question < 7; ++question) {
      Driver driver;
      driver.stale = question;
      driver.stale_error = error;
      EXPECT_EQ(driver.Read(), Whole()) << question;
      EXPECT_EQ(driver.asked, question + 2 + 8) << "the tag, the stale one, and all of them";
    }
    Driver restless;
    restless.answers[kTag] = {0, Words({1})};  // and its tag is 7
    restless.stale_error = error;
    EXPECT_EQ(restless.Read(), std::nullopt);
    EXPECT_EQ(restless.asked, 4) << "one more try";
  }
  Driver silent;
  silent.answers[kStatus] = {kTimeout};
  EXPECT_EQ(silent.Read(), std::nullopt);
  EXPECT_EQ(silent.asked, 3) << "no more questions after one without an answer";

  Driver slow;
  slow.answers[At(BatteryLevel::kManufactureName)] = {kTimeout};
  BatteryFacts told = Whole();
  told.manufacturer = told.serial_number = {};
  told.manufactured.reset();
  EXPECT_EQ(slow.Read(), told) << "the battery is there";
  EXPECT_EQ(slow.asked, 6);
}

TEST(BatteryClassTest, SlotsAreNamedByTheirPlace) {
  for (const auto& [path, slot] : std::initializer_list<std::pair<const char*, const char*>>{
           {R"(\\?\acpi#pnp0c0a#1#{72631e54-78a4-11d0-bcf7-00aa00b7b32a})", "PNP0C0A-1"},
           {R"(\\?\ACPI#PNP0C0A#2&daba3ff&1#{72631e54-78a4-11d0-bcf7-00aa00b7b32a})", "PNP0C0A-2&DABA3FF&1"},
           {R"(\\?\root#tvkbattery#0000#{72631e54-78a4-11d0-bcf7-00aa00b7b32a}\bat)", "TVKBATTERY-0000"},
           {R"(\\?\usb#vid_051d&pid_0002#3B1234X56789#{72631e54-78a4-11d0-bcf7-00aa00b7b32a})", "VID_051D&PID_0002"},
           {R"(\\?\usb#vid_051d&pid_0002#1234#{72631e54-78a4-11d0-bcf7-00aa00b7b32a})", "VID_051D&PID_0002"},
           {R"(\\?\acpi#pnp0c0a#SN123#{72631e54-78a4-11d0-bcf7-00aa00b7b32a})", "PNP0C0A"},
           {R"(\\?\hid#a b#7&12&0&0000#{72631e54-78a4-11d0-bcf7-00aa00b7b32a})", "A_B-7&12&0&0000"},
           {R"(\\?\acpi#pnp0c0a##)", "PNP0C0A"},
           {R"(\\?\acpi)", "BATTERY"},
           {"", "BATTERY"}}) {
    EXPECT_EQ(BatterySlots({{path}}), std::vector<std::string>{slot}) << path;
  }
  const std::vector<std::string> paths = {"a#b#SERIAL1", "a#b#SERIAL2", "acpi#b#2", "a#b#SERIAL3"};
  EXPECT_EQ(BatterySlots(paths), (std::vector<std::string>{"B", "B-2", "B-2-2", "B-3"}));
}

}  // namespace
}  // namespace platform
