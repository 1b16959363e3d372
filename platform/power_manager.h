// What the power software of the machine's maker tells of the batteries, where it is installed: a driver, a library and
// log files. What comes is bytes, numbers and texts as they are found; client/battery/ knows what they mean. Any
// thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// What the library answers of one battery.
struct SmartBatteryAnswer {
  std::uint32_t result = 0;  ///< As returned; its low 16 bits are a status.
  /// The two blocks behind it, as far as the library can have filled them.
  std::vector<std::uint8_t> status_block = {};
  std::vector<std::uint8_t> information_block = {};
};

/// One log file of the power manager.
struct PowerManagerLog {
  std::string name = {};    ///< Of the file, without its folder; UTF-8.
  std::uint64_t bytes = 0;  ///< Of the file.
  std::string text = {};    ///< Its content; empty when `bytes` is outside what was asked for.
};

struct PowerManagerLogs {
  std::vector<PowerManagerLog> logs = {};  ///< By name.
  /// The system's error, when the logged-on user's rights could not be taken.
  std::optional<std::uint32_t> refusal = {};
  /// Why they could not be read with these rights: no answer in time, no thread or memory for it.
  std::optional<std::uint32_t> failure = {};
};

/// Held by shared_ptr, as Batteries: each question takes as long as the software hangs.
class PowerManager : public std::enable_shared_from_this<PowerManager> {
 public:
  /// Of each block that the library fills.
  static constexpr std::size_t kBlockBytes = 256;

  PowerManager() = default;
  PowerManager(const PowerManager&) = delete;
  PowerManager& operator=(const PowerManager&) = delete;
  virtual ~PowerManager() = default;

  /// False: there is no such software for this system, and nothing to be asked.
  virtual bool IsPossible() const { return true; }

  /// Asks the energy-management driver with this device control code about a battery, counted from 0: at most 512
  /// bytes. Nothing when there is no such driver, and when it refuses.
  virtual std::optional<std::vector<std::uint8_t>> QueryEnergyDriver(std::uint32_t code, std::uint32_t battery) = 0;

  /// Asks the library about a battery, counted from 1. Nothing when there is no such library.
  virtual std::optional<SmartBatteryAnswer> ReadSmartBattery(std::uint32_t battery) = 0;
  /// The four words of a battery's firmware version. Nothing when there is no such library, and when it refuses.
  virtual std::optional<std::array<std::uint16_t, 4>> ReadFirmwareVersion(std::uint32_t battery) = 0;

  /// The log files, read with the rights of the user who is logged on. A file of fewer than `least` or more than `most`
  /// bytes is named, but not read.
  virtual PowerManagerLogs ReadLogs(std::uint64_t least, std::uint64_t most) = 0;
};

/// Of a machine for which there is no such software.
class NoPowerManager final : public PowerManager {
 public:
  bool IsPossible() const override { return false; }
  std::optional<std::vector<std::uint8_t>> QueryEnergyDriver(std::uint32_t /*code*/,
                                                             std::uint32_t /*battery*/) override {
    return std::nullopt;
  }
  std::optional<SmartBatteryAnswer> ReadSmartBattery(std::uint32_t /*battery*/) override { return std::nullopt; }
  std::optional<std::array<std::uint16_t, 4>> ReadFirmwareVersion(std::uint32_t /*battery*/) override {
    return std::nullopt;
  }
  PowerManagerLogs ReadLogs(std::uint64_t /*least*/, std::uint64_t /*most*/) override { return {}; }
};

}  // namespace platform
