// The users who are logged on at this machine.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/windows/owner.h"

namespace platform::windows {

inline constexpr DWORD kNoSession = 0xFFFFFFFF;

/// What the system says of its sessions; a test plays another system. Any thread.
class Sessions {
 public:
  Sessions() = default;
  Sessions(const Sessions&) = delete;
  Sessions& operator=(const Sessions&) = delete;
  virtual ~Sessions() = default;

  /// The session at the console; kNoSession while it is being switched.
  virtual DWORD Console();
  /// The sessions that somebody uses now, remote ones too.
  virtual std::vector<DWORD> Active();
  /// The session of this process.
  virtual DWORD Own();
  /// The primary token of a session's user; 0 or the system's error. Asking needs the system account.
  virtual DWORD UserToken(DWORD session, UniqueKernelHandle& token);
  /// The security identifier of a token's user; empty when the system does not say.
  virtual std::string SidOf(HANDLE token);
};

/// Those of this machine.
Sessions& LocalSessions();

struct SessionUser {
  std::string sid;  ///< The security identifier.
  DWORD session = kNoSession;
  bool operator==(const SessionUser&) const = default;
};

/// The user at the console, or of the first active remote session, but of none of `ended`. Where the running account
/// may not ask for users, it counts itself when its session is such a one. Nothing while nobody is logged on.
std::optional<SessionUser> FindLoggedInUser(Sessions& sessions, const std::set<DWORD>& ended = {});

/// The security identifier of that user of this machine; empty: nobody.
std::string ReadLoggedInUserSid();

/// Puts the primary token of the user at the console, or of the first active remote session, but of none of `ended`,
/// into `token`, and the session's number into `session`, which may be null. Returns 0 or the system's error:
/// ERROR_NO_TOKEN when nobody is logged on, ERROR_PRIVILEGE_NOT_HELD when the running account may not ask (the system
/// account may).
DWORD OpenUserToken(Sessions& sessions, UniqueKernelHandle& token, DWORD* session = nullptr,
                    const std::set<DWORD>& ended = {});

}  // namespace platform::windows
