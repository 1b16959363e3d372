// The batteries of the machine, as its operating system knows them. Any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// What a battery does at present.
enum class ChargeState {
  kCharging,
  kDischarging,
  kIdle,  ///< Neither: full, held at a limit, or not in use.
};

/// What the system tells of one battery. A fact that it does not tell is absent, a text empty (UTF-8, without blanks at
/// its ends). What is out of range or means "unknown" in the system's own form counts as not told.
struct BatteryFacts {
  /// Where the battery sits; the same over restarts, and for another battery in its place: "BAT0". Not empty, once in a
  /// list, and without what is printed on the battery, as a serial number.
  std::string slot = {};
  /// Of that place among all that the machine has for batteries, empty ones too, counted from 0: the software of its
  /// maker tells batteries apart by it. Absent where the system does not tell of empty ones.
  std::optional<std::uint32_t> number = {};
  std::string path = {};  ///< Under which the system reaches it.
  std::string name = {};  ///< That its maker gave the model.
  std::string manufacturer = {};
  std::string chemistry = {};      ///< In the system's words: "Li-ion", "LION".
  std::string serial_number = {};  ///< In clear: it leaves the client hashed only.
  std::optional<std::chrono::year_month_day> manufactured = {};
  std::optional<std::uint32_t> design_mwh = {};
  std::optional<std::uint32_t> full_mwh = {};
  std::optional<std::uint32_t> remaining_mwh = {};
  std::optional<std::uint32_t> percent = {};  ///< That remains, 0..100.
  std::optional<ChargeState> state = {};
  std::optional<bool> on_ac = {};                           ///< The machine runs from mains.
  std::optional<std::chrono::seconds> remaining_time = {};  ///< Until it is empty or, while it charges, full.
  std::optional<std::uint32_t> cycles = {};                 ///< At least 1.

  bool operator==(const BatteryFacts&) const = default;
};

/// Held by shared_ptr: a question whose driver hangs may come back after whoever asked has gone.
class Batteries : public std::enable_shared_from_this<Batteries> {
 public:
  Batteries() = default;
  Batteries(const Batteries&) = delete;
  Batteries& operator=(const Batteries&) = delete;
  virtual ~Batteries() = default;

  /// The batteries that power the machine itself, in an order that stays while they stay; empty slots, the batteries of
  /// a mouse or a headset and uninterruptible supplies left out. Empty when there is none, and when the system tells of
  /// none. One that comes or goes meanwhile is in the list as it was before or after. Takes as long as a driver hangs.
  virtual std::vector<BatteryFacts> List() = 0;
};

}  // namespace platform
