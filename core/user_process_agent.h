// The manager's view of the user agent's process.
#pragma once

#include "platform/waitable.h"

namespace TVK {

/// The user agent's program.
inline constexpr wchar_t kUserAgentProgram[] = L"TVKUserAgent.exe";

}  // namespace TVK

/// Starts and ends the user agent's program in the session of the logged-on user. Any thread.
class UserProcessAgent {
 public:
  virtual ~UserProcessAgent() = default;

  /// Whether this system has a user agent at all; where it has none, none runs and none is to be started. Constant.
  virtual bool Exists() const { return true; }

  /// Whether the display dataset is collected in the user's session.
  virtual void SetDataSetEnable(bool enable) = 0;

  /// Starts the process, or sees to it that it runs. `stop_event`: the manager's; no start is tried once it is set.
  /// `wait_for_user`: start it again when it ends by itself, and at each logon that finds it ended, so also when nobody
  /// is logged on yet. False, with the reason logged, when it cannot be started.
  virtual bool StartUserProcess(platform::Event& stop_event, bool wait_for_user) = 0;

  /// Whether the process is there now: false also when it ended by itself or waits for a logon.
  virtual bool UserProcessRuns() = 0;

  /// Ends the process and returns when it is gone. `reason` is its exit code when it must be forced.
  virtual void StopUserProcess(int reason) = 0;
};
