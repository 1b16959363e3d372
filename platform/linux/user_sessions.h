// Who is logged on, from the system's register of logins and the console that is shown.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/system_event.h"

namespace platform {

struct UserSessions {
  std::map<std::uint32_t, std::string> terminals;  ///< Process id of a session's leader, to its terminal, "tty2".
  std::string console;                             ///< The terminal that is shown, "tty2"; empty: not known.
};

/// `logins`: the bytes of /run/utmp, whole records of utmp(5); what is behind the last whole one is passed over.
/// `console`: the text of /sys/class/tty/tty0/active.
UserSessions DecodeUserSessions(std::string_view logins, std::string_view console);

/// What happened in between: sessions that ended, sessions that began, the console's change. A session's number is the
/// process id of its leader.
std::vector<SessionChange> CompareUserSessions(const UserSessions& before, const UserSessions& after);

}  // namespace platform
