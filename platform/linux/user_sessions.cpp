#include "platform/linux/user_sessions.h"

#include <utmpx.h>

#include <algorithm>
#include <cstring>
#include <optional>

namespace platform {
namespace {

std::optional<std::uint32_t> SessionAtConsole(const UserSessions& sessions) {
  const auto found = std::ranges::find_if(sessions.terminals, [&](const auto& session) {
    return !sessions.console.empty() && session.second == sessions.console;
  });
  return found == sessions.terminals.end() ? std::nullopt : std::optional(found->first);
}

}  // namespace

UserSessions DecodeUserSessions(std::string_view logins, std::string_view console) {
  UserSessions sessions;
  sessions.console = console.substr(0, std::min(console.find_first_of("\n "), console.size()));
  for (; logins.size() >= sizeof(utmpx); logins.remove_prefix(sizeof(utmpx))) {
    utmpx login;
    std::memcpy(&login, logins.data(), sizeof login);
    if (login.ut_type != USER_PROCESS || login.ut_pid <= 0) continue;
    sessions.terminals[static_cast<std::uint32_t>(login.ut_pid)] =
        std::string(login.ut_line, ::strnlen(login.ut_line, sizeof login.ut_line));
  }
  return sessions;
}

std::vector<SessionChange> CompareUserSessions(const UserSessions& before, const UserSessions& after) {
  std::vector<SessionChange> changes;
  const auto add_missing = [&](const UserSessions& from, const UserSessions& in, SessionChangeKind kind) {
    for (const auto& [session, terminal] : from.terminals) {
      if (!in.terminals.contains(session)) changes.push_back({kind, session});
    }
  };
  add_missing(before, after, SessionChangeKind::kLogoff);
  add_missing(after, before, SessionChangeKind::kLogon);
  const auto old_console = SessionAtConsole(before);
  const auto new_console = SessionAtConsole(after);
  if (old_console == new_console) return changes;
  if (old_console) changes.push_back({SessionChangeKind::kConsoleDisconnect, *old_console});
  if (new_console) changes.push_back({SessionChangeKind::kConsoleConnect, *new_console});
  return changes;
}

}  // namespace platform
