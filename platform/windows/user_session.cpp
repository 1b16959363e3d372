#include "platform/windows/user_session.h"

#include "platform/windows/sys.h"

#include <wtsapi32.h>

#include "platform/windows/owner.h"
#include "platform/windows/security.h"

namespace platform::windows {
namespace {

struct SessionListTraits : NullHandle<WTS_SESSION_INFOW*, WTSFreeMemory> {};
using UniqueSessionList = Owner<SessionListTraits>;

constexpr DWORD kNoSession = 0xFFFFFFFF;

// Calls `visit` with the session at the console, then with each active remote one, until it returns true.
template <class Visit>
void VisitUserSessions(Visit visit) {
  if (const DWORD console = WTSGetActiveConsoleSessionId(); console != kNoSession && visit(console)) return;
  UniqueSessionList sessions;
  DWORD count = 0;
  if (!WTSEnumerateSessionsW(WTS_CURRENT_SERVER_HANDLE, 0, 1, sessions.Receive(), &count)) return;
  for (DWORD i = 0; i < count; ++i) {
    if (sessions.get()[i].State == WTSActive && visit(sessions.get()[i].SessionId)) return;
  }
}

std::string SidOfSession(DWORD session) {
  UniqueKernelHandle token;
  if (WTSQueryUserToken(session, token.Receive())) return UserSid(token.get());
  const DWORD error = GetLastError();
  DWORD own_session = kNoSession;
  ProcessIdToSessionId(GetCurrentProcessId(), &own_session);
  return error != ERROR_NO_TOKEN && own_session == session ? ProcessUserSid() : std::string();
}

}  // namespace

std::string ReadLoggedInUserSid() {
  std::string sid;
  VisitUserSessions([&](DWORD session) {
    sid = SidOfSession(session);
    return !sid.empty();
  });
  return sid;
}

UniqueKernelHandle OpenUserToken() {
  UniqueKernelHandle token;
  VisitUserSessions([&](DWORD session) { return WTSQueryUserToken(session, token.Receive()) != FALSE; });
  return token;
}

}  // namespace platform::windows
