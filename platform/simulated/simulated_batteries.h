// Batteries and the maker's power software, as a test scripts them.
#pragma once

#include <functional>
#include <map>
#include <utility>

#include "platform/batteries.h"
#include "platform/power_manager.h"
#include "platform/simulated/scripted.h"

namespace platform {

/// One battery, full and idle, until then.
class SimulatedBatteries final : public Batteries, public Scripted<std::vector<BatteryFacts>> {
 public:
  SimulatedBatteries()
      : Scripted(std::vector<BatteryFacts>{{.slot = "BAT0",
                                            .number = 0,
                                            .path = "/sys/class/power_supply/BAT0",
                                            .name = "5B10W51867",
                                            .manufacturer = "Celxpert",
                                            .chemistry = "Li-poly",
                                            .serial_number = "1234",
                                            .design_mwh = 57'000,
                                            .full_mwh = 51'300,
                                            .remaining_mwh = 51'300,
                                            .percent = 100,
                                            .state = ChargeState::kIdle,
                                            .on_ac = true,
                                            .cycles = 120}}) {}

  std::vector<BatteryFacts> List() override {
    if (on_question) on_question();
    return Get();
  }

  /// Called first with each question; before others use the object.
  std::function<void()> on_question = {};
};

/// What the maker's software answers; until then it is not there.
struct PowerManagerScript {
  std::map<std::pair<std::uint32_t, std::uint32_t>, std::vector<std::uint8_t>> driver = {};  ///< By code and battery.
  std::map<std::uint32_t, SmartBatteryAnswer> smart_batteries = {};
  std::map<std::uint32_t, std::array<std::uint16_t, 4>> firmware = {};
  PowerManagerLogs logs = {};
};

class SimulatedPowerManager final : public PowerManager, public Scripted<PowerManagerScript> {
 public:
  std::optional<std::vector<std::uint8_t>> QueryEnergyDriver(std::uint32_t code, std::uint32_t battery) override {
    if (on_driver_question) on_driver_question();
    return Answer(Get().driver, std::pair(code, battery));
  }
  std::optional<SmartBatteryAnswer> ReadSmartBattery(std::uint32_t battery) override {
    return Answer(Get().smart_batteries, battery);
  }
  std::optional<std::array<std::uint16_t, 4>> ReadFirmwareVersion(std::uint32_t battery) override {
    return Answer(Get().firmware, battery);
  }
  PowerManagerLogs ReadLogs(std::uint64_t least, std::uint64_t most) override {
    PowerManagerLogs answer = Get().logs;
    for (PowerManagerLog& log : answer.logs) {
      if (log.bytes < least || log.bytes > most) log.text.clear();
    }
    return answer;
  }

  /// Called first with each question to the driver; before others use the object.
  std::function<void()> on_driver_question = {};

 private:
  template <typename Key, typename Value>
  static std::optional<Value> Answer(const std::map<Key, Value>& answers, const Key& key) {
    const auto found = answers.find(key);
    return found == answers.end() ? std::nullopt : std::optional(found->second);
  }
};

}  // namespace platform
