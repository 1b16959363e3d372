// What the power manager's library tells of a battery: the two blocks that SM_GetSmartBatteryStatusEx fills, and what
// they say. Pure; any thread.
//
// Both begin with the number of bytes that the library filled, these four included; what stands behind them is not
// looked at (see battery_block.h for the rest). Numbers are little-endian, of four bytes each:
//
//     status block                                   information block
//     at   0  bytes filled                           at   0  bytes filled
//     at   4  status bits, see below                 at   4  warranty: 1 valid, 0 not
//     at   8  full-charge capacity, mWh              at   8  design capacity, mWh
//     at  12  remaining capacity, mWh                at  12  manufacture date, a text of 16 bytes
//     at  16  24 bytes  BatteryCounters              at  28  date of first use, a text of 16 bytes
//                                                    at  44  warranty, a text of 32 bytes
//                                                    at  76  112 bytes  BatteryLabel
//
// Dates are texts as "2024-05-31". The condition is a set of bits:
//
//     0x01  Permanent Error      0x04  High Temperature     0x10  Overheated
//     0x02  Unsupported          0x08  Trickle Charge
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "client/battery/battery_block.h"

namespace TVK {

/// What the library does not tell is absent, a text empty.
struct SmartBatteryStatus {
  std::optional<std::uint32_t> status_bits = {};
  std::optional<std::uint32_t> full_mwh = {};
  std::optional<std::uint32_t> remaining_mwh = {};
  BatteryCounters counters = {};
  std::optional<bool> warranty_valid = {};
  std::optional<std::uint32_t> design_mwh = {};
  std::optional<std::chrono::year_month_day> manufactured = {};
  std::optional<std::chrono::year_month_day> first_used = {};
  std::string warranty = {};
  BatteryLabel label = {};

  bool operator==(const SmartBatteryStatus&) const = default;
};

SmartBatteryStatus DecodeSmartBatteryStatus(std::span<const std::uint8_t> status_block,
                                            std::span<const std::uint8_t> information_block);

/// "Normal" for none of the bits, its word for a single one, "Abnormal" and the bits in hexadecimal for anything else.
std::wstring SmartBatteryCondition(std::uint32_t status_bits);

/// Sets the properties of `battery` that `status` tells.
void Describe(const SmartBatteryStatus& status, BatteryInfo& battery);

}  // namespace TVK
