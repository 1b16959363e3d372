#include "platform/windows/user_session.h"

#include "platform/windows/sys.h"

#include <wtsapi32.h>

#include "platform/windows/security.h"

namespace platform::windows {
namespace {

struct SessionListTraits : NullHandle<WTS_SESSION_INFOW*, WTSFreeMemory> {};
using UniqueSessionList = Owner<SessionListTraits>;

// The sessions in which to look for a user, the console's first.
std::vector<DWORD> InOrder(Sessions& sessions, const std::set<DWORD>& ended) {
  std::vector<DWORD> order;
  if (const DWORD console = sessions.Console(); console != kNoSession) order.push_back(console);
  const std::vector<DWORD> active = sessions.Active();
  order.insert(order.end(), active.begin(), active.end());
  std::erase_if(order, [&](DWORD session) { return ended.contains(session); });
  return order;
}

}  // namespace

DWORD Sessions::Console() {
  return WTSGetActiveConsoleSessionId();
}

std::vector<DWORD> Sessions::Active() {
  UniqueSessionList list;
  DWORD count = 0;
  if (!WTSEnumerateSessionsW(WTS_CURRENT_SERVER_HANDLE, 0, 1, list.Receive(), &count)) return {};
  std::vector<DWORD> active;
  for (DWORD i = 0; i < count; ++i) {
    if (list.get()[i].State == WTSActive) active.push_back(list.get()[i].SessionId);
  }
  return active;
}

DWORD Sessions::Own() {
  DWORD session = kNoSession;
  ProcessIdToSessionId(GetCurrentProcessId(), &session);
  return session;
}

DWORD Sessions::UserToken(DWORD session, UniqueKernelHandle& token) {
  return WTSQueryUserToken(session, token.Receive()) ? ERROR_SUCCESS : GetLastError();
}

std::string Sessions::SidOf(HANDLE token) {
  return UserSid(token);
}

Sessions& LocalSessions() {
  static Sessions sessions;
  return sessions;
}

std::optional<SessionUser> FindLoggedInUser(Sessions& sessions, const std::set<DWORD>& ended) {
  for (const DWORD session : InOrder(sessions, ended)) {
    UniqueKernelHandle token;
    const DWORD error = sessions.UserToken(session, token);
    std::string sid;
    if (error == ERROR_SUCCESS) {
      sid = sessions.SidOf(token.get());
    } else if (error != ERROR_NO_TOKEN && sessions.Own() == session) {
      sid = ProcessUserSid();
    }
    if (!sid.empty()) return SessionUser{std::move(sid), session};
  }
  return std::nullopt;
}

std::string ReadLoggedInUserSid() {
  return FindLoggedInUser(LocalSessions()).value_or(SessionUser()).sid;
}

DWORD OpenUserToken(Sessions& sessions, UniqueKernelHandle& token, DWORD* session, const std::set<DWORD>& ended) {
  DWORD error = ERROR_NO_TOKEN;
  for (const DWORD number : InOrder(sessions, ended)) {
    error = sessions.UserToken(number, token);
    if (error != ERROR_SUCCESS) continue;
    if (session != nullptr) *session = number;
    break;
  }
  return error;
}

}  // namespace platform::windows
