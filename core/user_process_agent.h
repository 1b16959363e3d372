// The manager's view of the user agent's process.
#pragma once

#include "platform/waitable.h"

namespace TVK {

/// The user agent's program, and that of the service which starts it.
inline constexpr wchar_t kUserAgentProgram[] = L"TVKUserAgent.exe";
inline constexpr wchar_t kServiceProgram[] = L"TVKClientService.exe";

}  // namespace TVK

/// Starts and ends the user agent's program in the session of the logged-on user. Any thread.
class UserProcessAgent {
 public:
  virtual ~UserProcessAgent() = default;

  /// Whether this system has a user agent at all; where it has none, none runs and none is to be started. Constant.
  virtual bool Exists() const { return true; }

  /// Whether the display dataset is collected in the user's session.
  virtual void SetDataSetEnable(bool enable) = 0;

  /// Sees to it, until StopUserProcess, that the process runs where the user is: also when nobody is logged on yet, and
  /// again when it ended by itself or could not be started. Does not wait for it. `stop_event`: the manager's. False
  /// when that is set, and, with the reason logged, when nothing can be started.
  virtual bool StartUserProcess(platform::Event& stop_event) = 0;

  /// Whether the process is there now: false also when it ended by itself or waits for a logon.
  virtual bool UserProcessRuns() = 0;

  /// Ends the process and returns when it is gone, or, logged, when the system neither ends nor begins it in time.
  /// `reason` is its exit code when it must be forced.
  virtual void StopUserProcess(int reason) = 0;
};
