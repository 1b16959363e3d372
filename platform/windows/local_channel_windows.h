// The words of the pipe's calls, as data that a test can look at: Wine obeys few of them.
#pragma once

#include "platform/windows/sys.h"

#include <filesystem>
#include <string>

#include "platform/windows/owner.h"

namespace platform::windows {

/// What a client may do with its end: read, write and wait, by single bits. The generic right to write holds the right
/// to make another instance of the pipe, and with that to serve in our place.
inline constexpr DWORD kPipeClientRights = FILE_GENERIC_READ | FILE_WRITE_DATA;
static_assert((kPipeClientRights & FILE_CREATE_PIPE_INSTANCE) == 0);

/// The access list: all rights for the system, the administrators and the account `own` (a security identifier), a
/// client's for whoever is logged on. Nobody is denied for having come over the network, as an administrator has who
/// works from afar: the pipe itself takes no connection from another computer.
std::string PipeAccessList(const std::string& own);

/// How an instance is opened: the first one only when nobody has a pipe of this name.
constexpr DWORD PipeOpenMode(bool first) {
  return PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | (first ? FILE_FLAG_FIRST_PIPE_INSTANCE : 0u);
}
inline constexpr DWORD kPipeMode = PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS;

/// How a client opens its end: whoever serves may learn who it is, and cannot act for it.
inline constexpr DWORD kPipeClientFlags = FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION;

/// What the system does with the name of a pipe; a test plays Windows, since Wine obeys neither the flag of the first
/// instance nor an access list.
class PipeSystem {
 public:
  PipeSystem() = default;
  PipeSystem(const PipeSystem&) = delete;
  PipeSystem& operator=(const PipeSystem&) = delete;
  virtual ~PipeSystem() = default;

  /// Makes an instance, see PipeOpenMode: 0, or the system's error and no `pipe`.
  virtual DWORD MakeInstance(bool first, UniqueFile& pipe) = 0;
  /// Connects to the name as a client does; the same.
  virtual DWORD Connect(UniqueFile& pipe) = 0;
  /// The security identifier of a pipe's owner; empty when the system does not say.
  virtual std::string OwnerOf(HANDLE pipe) = 0;
};

/// Makes the instance with which the name begins to be served: 0 and `pipe`, or the system's error, ERROR_ACCESS_DENIED
/// where somebody else has the name.
///
/// A pipe is there as long as a server or a client holds it: a client of a service that was killed keeps the name, and
/// any user can be that client. Where no server is left, which connecting shows, an instance is added to what is there.
/// It is kept only if a trusted account owns the pipe: nobody can name another owner, so that account made the pipe,
/// with an access list on which no client can add instances. Who takes a name that becomes free in between owns it,
/// too. Two trusted processes that do this at once would both serve the name; of our services the second one has no
/// store.
DWORD TakePipeName(PipeSystem& system, UniqueFile& pipe);

/// "\\.\pipe\TVKClientService" for the empty place; for any other one that and a part of the hash of its path.
std::wstring PipeName(const std::filesystem::path& place);

}  // namespace platform::windows
