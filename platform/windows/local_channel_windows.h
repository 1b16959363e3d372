// The words of the pipe's calls, as data that a test can look at: Wine obeys few of them.
#pragma once

#include "platform/windows/sys.h"

#include <filesystem>
#include <string>

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

/// "\\.\pipe\TVKClientService" for the empty place; for any other one that and a part of the hash of its path.
std::wstring PipeName(const std::filesystem::path& place);

}  // namespace platform::windows
