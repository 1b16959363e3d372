// A program of ours in the session of the user who is logged on.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/waitable.h"

namespace platform {

/// A started process. Any thread. Its end does not end the process.
class SessionProcess {
 public:
  SessionProcess() = default;
  SessionProcess(const SessionProcess&) = delete;
  SessionProcess& operator=(const SessionProcess&) = delete;
  virtual ~SessionProcess() = default;

  /// Signalled from the end of the process on. To be waited for with the runtime of this process.
  virtual Waitable& end() = 0;
  virtual bool HasEnded() = 0;
  /// Ends it at once with this exit code; nothing when it has ended already.
  virtual void Kill(std::uint32_t exit_code) = 0;
};

/// What starting gave.
struct SessionProcessStart {
  std::unique_ptr<SessionProcess> process;  ///< Null: not started.
  bool nobody_logged_on = false;            ///< Not started because there is no session to start it in.
  std::string problem;                      ///< Why it was not started, naming the program.
  std::uint32_t session = 0;                ///< The system's number of the session that it runs in.
};

/// What is started.
struct SessionProgram {
  std::filesystem::path program;  ///< An absolute path.
  std::vector<std::wstring> arguments = {};
  /// The name of an event that this account made and still holds: the user for whom the program runs gets every right
  /// to it. Empty: none.
  std::wstring event = {};
};

/// Starts a program on behalf of the user at the console, or of the first active remote session. A process that may not
/// start programs for others (a console program, a service of an ordinary account) starts it for itself, as a plain
/// child; the system account never does. Any thread.
using SessionProgramStarter = std::function<SessionProcessStart(const SessionProgram& program)>;

/// This system's; empty on systems whose user agent is not built.
SessionProgramStarter LocalSessionProgramStarter();

}  // namespace platform
