// The processes of this machine by the names of their programs, and whose they are.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform::windows {

/// The ids of the processes that run a program of this file name, whatever its case and folder; none when the system
/// does not list its processes. Any thread.
std::vector<std::uint32_t> ProcessesOf(std::wstring_view program);

/// The session of a process, whoever's it is; nothing when the system does not list it. Any thread.
std::optional<std::uint32_t> SessionOf(std::uint32_t process);

/// Whose a process is.
struct ProcessOwner {
  std::string sid = {};                       ///< The security identifier of the owner; empty: not known.
  bool denied = false;                        ///< The system does not tell it, mostly since this account may not ask.
  std::optional<std::uint32_t> session = {};  ///< Of one that is denied alone; nothing: not known either.
};

/// The owner of a process: the administrators for one that acts with an administrator's full rights and for those of
/// the system, else the account itself. Nobody can name another one. Not known, too, of a process that is gone. Any
/// thread.
ProcessOwner OwnerOfProcess(std::uint32_t process);

/// Whether a process that has the name of the service's program may be the service: it is the system's, the
/// administrators' or of `account`, the one that the service is known to have (empty: not known). Whoever else gives a
/// program of theirs this name is none. `denied_may_be`: for a process that may not be asked and is in the session of
/// the services, 0, or in one that is not known; in a user's session it is none.
bool MayBeService(const ProcessOwner& owner, const std::string& account, bool denied_may_be);

}  // namespace platform::windows
