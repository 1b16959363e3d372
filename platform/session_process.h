// A program of ours in the session of the user who is logged on.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/clock.h"

namespace platform {

/// A started process. One thread at a time. Its end does not end the process.
class SessionProcess {
 public:
  SessionProcess() = default;
  SessionProcess(const SessionProcess&) = delete;
  SessionProcess& operator=(const SessionProcess&) = delete;
  virtual ~SessionProcess() = default;

  /// Waits until the process has ended, at most `timeout`; whether it has. Zero only looks.
  virtual bool WaitForEnd(milliseconds timeout) = 0;
  /// Ends it at once with this exit code; nothing when it has ended already.
  virtual void Kill(std::uint32_t exit_code) = 0;
};

/// What starting gave.
struct SessionProcessStart {
  std::unique_ptr<SessionProcess> process;  ///< Null: not started.
  bool nobody_logged_on = false;            ///< Not started because there is no session to start it in.
  std::string problem;                      ///< Why it was not started, naming the program.
};

/// Starts `program` (an absolute path) on behalf of the user at the console, or of the first active remote session.
/// A process that may not start programs for others (a console program, a service of an ordinary account) starts it for
/// itself, as a plain child; the system account never does. On systems whose user agent is not built it only says so.
/// Any thread.
SessionProcessStart StartInUserSession(const std::filesystem::path& program,
                                       const std::vector<std::wstring>& arguments);

}  // namespace platform
