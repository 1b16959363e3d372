// The session of the user who is logged on, and a program of ours in it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
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

/// The sessions of a machine, by the system's numbers. The user's is that of the console when somebody is logged on
/// there, else the first active remote one; never one of `ended`, whose users logged off. A process that may not act
/// for others (a console program, a service of an ordinary account) counts its own session as the user's; the system
/// account never does. Any thread.
class UserSessions {
 public:
  UserSessions() = default;
  UserSessions(const UserSessions&) = delete;
  UserSessions& operator=(const UserSessions&) = delete;
  virtual ~UserSessions() = default;

  /// Nothing while nobody is logged on, or while the system cannot say it yet.
  virtual std::optional<std::uint32_t> Find(const std::set<std::uint32_t>& ended) = 0;
  /// Whether another process than this one runs the service's program (its file's name, case aside) on behalf of the
  /// system, the administrators or this account. A process of anybody else is no service, whatever its name. One that
  /// may not be asked counts for an ordinary account when it is in the services' session, and never for the system.
  virtual bool ServiceRunsElsewhere(std::wstring_view program) = 0;
  /// Starts a program there, on behalf of its user; where the session is our own as a plain child.
  virtual SessionProcessStart Start(const SessionProgram& program, const std::set<std::uint32_t>& ended) = 0;
};

/// This machine's; null on systems whose user agent is not built.
std::unique_ptr<UserSessions> OpenLocalUserSessions();

}  // namespace platform
