// What the energy-management driver tells of a battery: the blocks that it fills, and what they say. Pure; any thread.
//
// Each of three device control codes fills one block. Their layouts, numbers little-endian, what stands behind them not
// looked at; a driver that knows less fills less (see battery_block.h):
//
//     0x831020F8, identity                           0x83102120, condition
//     at   0    8 bytes  hardware id                 at   0  4 bytes  0 normal, 1 performance
//     at   8    8 bytes  firmware id                                  degradation, 2 unsupported
//     at  16    4 bytes  manufacture date            at   4  4 bytes  full-charge capacity, mWh
//     at  20    4 bytes  date of first use           at   8  4 bytes  remaining capacity, mWh
//     at  24    4 bytes  design capacity, mWh
//     at  28  112 bytes  BatteryLabel                0x83102138, usage
//                                                    at   0  24 bytes  BatteryCounters
//
// A date is a year of two bytes, a month and a day of one byte each. An id whose bits are all alike was never given.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <span>

#include "client/battery/battery_block.h"

/// A value. What the driver does not tell is absent, a text empty.
struct _EM_BATTERY_INFO {  // NOLINT(*-reserved-identifier,cert-dcl*): the block's established name
  using Id = std::array<std::uint8_t, 8>;

  std::optional<Id> hardware_id = {};
  std::optional<Id> firmware_id = {};
  std::optional<std::chrono::year_month_day> manufactured = {};
  std::optional<std::chrono::year_month_day> first_used = {};
  std::optional<std::uint32_t> design_mwh = {};
  TVK::BatteryLabel label = {};
  std::optional<std::uint32_t> condition = {};  ///< 0, 1 or 2.
  std::optional<std::uint32_t> full_mwh = {};
  std::optional<std::uint32_t> remaining_mwh = {};
  TVK::BatteryCounters counters = {};

  bool operator==(const _EM_BATTERY_INFO&) const = default;
};

namespace TVK {

inline constexpr std::uint32_t kEmBatteryIdentity = 0x831020F8;
inline constexpr std::uint32_t kEmBatteryCondition = 0x83102120;
inline constexpr std::uint32_t kEmBatteryUsage = 0x83102138;

/// Each takes over into `info` what the block of its code tells, and leaves the rest.
void DecodeEmIdentity(std::span<const std::uint8_t> block, _EM_BATTERY_INFO& info);
void DecodeEmCondition(std::span<const std::uint8_t> block, _EM_BATTERY_INFO& info);
void DecodeEmUsage(std::span<const std::uint8_t> block, _EM_BATTERY_INFO& info);

/// Sets the properties of `battery` that `info` tells, and its block.
void Describe(const _EM_BATTERY_INFO& info, BatteryInfo& battery);

}  // namespace TVK
