// What a system tells of its power, its users and its drives while it runs, in one form on every system.
#pragma once

#include <cstdint>
#include <variant>

namespace platform {

/// What the machine runs on.
enum class PowerSource {
  kAc,
  kBattery,
  kShortTerm,  ///< An uninterruptible power supply.
};

/// What the batteries hold together.
struct BatteryPercent {
  std::uint32_t percent = 0;  ///< 0..100.
  bool operator==(const BatteryPercent&) const = default;
};

/// Sleep of any depth. A resume comes once for each sleep; the suspend before it may be missing (Windows, when sleep
/// turns into hibernation), come twice, or come only together with the resume (Linux).
enum class SleepChange { kSuspend, kResume };

enum class SessionChangeKind {
  kLogon,
  kLogoff,
  kConsoleConnect,     ///< The session is at the console now.
  kRemoteConnect,      ///< A user is back at the session from elsewhere.
  kConsoleDisconnect,  ///< It no longer is, for another one or for none.
  kRemoteDisconnect,   ///< The user who was at it from elsewhere left, and did not log off.
};

struct SessionChange {
  SessionChangeKind kind = SessionChangeKind::kLogon;
  std::uint32_t session = 0;  ///< The system's number of the session; on Linux the process id of its leader.
  bool operator==(const SessionChange&) const = default;
};

/// A drive came or went; Drives::List tells which are there now.
enum class DriveChange { kAttached, kDetached };

/// PowerSource: the machine runs on that from now on. BatteryPercent: the batteries hold that now.
struct SystemEvent : std::variant<PowerSource, BatteryPercent, SleepChange, SessionChange, DriveChange> {
  using variant::variant;
};

}  // namespace platform
