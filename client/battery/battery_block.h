// A block that the maker's power software filled with what it knows of a battery. Pure; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

class BatteryInfo;

namespace TVK {

/// Reads fields of `bytes`, which must outlive it. Software of every age is about: an older one fills less, and a field
/// that does not lie wholly inside is absent. Numbers are little-endian.
class BatteryBlock {
 public:
  explicit BatteryBlock(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  /// The `size` bytes from `at` on; empty when absent.
  std::span<const std::uint8_t> Bytes(std::size_t at, std::size_t size) const;

  /// The four bytes from `at` on. Nothing also for 0xFFFFFFFF, by which the software says that it does not know.
  std::optional<std::uint32_t> Number(std::size_t at) const;

  /// The same of what cannot be 0 (a capacity, a battery's charge cycles): such a 0 was never filled in.
  std::optional<std::uint32_t> PositiveNumber(std::size_t at) const;

  /// ASCII up to the first zero byte, without blanks at its ends; what is no printable character counts as a blank.
  /// Empty when absent.
  std::string Text(std::size_t at, std::size_t size) const;

 private:
  const std::span<const std::uint8_t> bytes_;
};

/// What is printed on a battery; a text that is not told is empty. In a block, each of these filled up with zeros:
///
///     at   0  32 bytes  serial number
///     at  32  32 bytes  manufacturer
///     at  64  32 bytes  device name
///     at  96  16 bytes  chemistry
struct BatteryLabel {
  static constexpr std::size_t kBytes = 112;

  std::string serial_number = {};  ///< In clear.
  std::string manufacturer = {};
  std::string device_name = {};
  std::string chemistry = {};

  bool operator==(const BatteryLabel&) const = default;
};

/// What a battery counted; what is not told is absent. In a block, each a number of four bytes:
///
///     at   0  charge cycles, at least 1
///     at   4  charged altogether, Wh
///     at   8  hours awake on the battery
///     at  12  hours at full charge
///     at  16  hours at high temperature
///     at  20  hours at full charge and high temperature
struct BatteryCounters {
  static constexpr std::size_t kBytes = 24;

  std::optional<std::uint32_t> cycles = {};
  std::optional<std::uint32_t> charged_wh = {};
  std::optional<std::uint32_t> awake_hours = {};
  std::optional<std::uint32_t> full_charge_hours = {};
  std::optional<std::uint32_t> high_temperature_hours = {};
  std::optional<std::uint32_t> full_charge_high_temperature_hours = {};

  bool operator==(const BatteryCounters&) const = default;
};

BatteryLabel DecodeBatteryLabel(const BatteryBlock& block, std::size_t at);
BatteryCounters DecodeBatteryCounters(const BatteryBlock& block, std::size_t at);

/// Each sets the properties of `battery` that are told and leaves the others.
void Describe(const BatteryLabel& label, BatteryInfo& battery);
void Describe(const BatteryCounters& counters, BatteryInfo& battery);

}  // namespace TVK
