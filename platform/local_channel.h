// The local door between processes of this machine: byte streams to one service, and who is at their other end. A Unix
// socket on Linux, a named pipe on Windows; nobody reaches either over the network.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/runtime.h"

namespace platform {

/// What an account is to the process that listens; the first that fits.
enum class CallerKind {
  kOwnAccount,       ///< The account that the listening process runs as; on Windows the system account, too.
  kAdministrator,    ///< root; on Windows an administrator who acts with that one's rights.
  kInteractiveUser,  ///< Somebody who is logged on at the console or in another session that is in use.
  kOther,
};

struct LocalCaller {
  CallerKind kind = CallerKind::kOther;
  std::string user = {};      ///< The number of the account on Linux, its security identifier on Windows.
  std::uint32_t process = 0;  ///< Of the one who connected; for logs, since it may have ended by now.
  std::uint32_t session = 0;  ///< Windows: of the caller's token. Linux: the leader of its process session.
};

/// How waiting for the other end ended.
enum class ChannelWait {
  kDone,
  kClosed,   ///< The other end is gone, or the connection failed.
  kTimeout,  ///< The deadline came.
  kStopped,  ///< The stop event was signalled.
};

/// One connection. One thread at a time; destroying it closes it.
class LocalConnection {
 public:
  LocalConnection() = default;
  LocalConnection(const LocalConnection&) = delete;
  LocalConnection& operator=(const LocalConnection&) = delete;
  virtual ~LocalConnection() = default;

  /// Waits for bytes, at least one, at most what `buffer` (not empty) holds; `received` is how many came, 0 unless
  /// kDone. What has come already is given whatever the deadline; SteadyTime::max() never comes.
  virtual ChannelWait Receive(std::span<char> buffer, SteadyTime deadline, std::size_t& received) = 0;

  /// Waits until the system has taken all of `bytes`. After anything but kDone a part may have gone.
  virtual ChannelWait Send(std::string_view bytes, SteadyTime deadline) = 0;

  /// Who is at the other end of a connection that was accepted; on Windows once something was received of it. Nothing
  /// when the system does not say; such a caller has no rights.
  virtual std::optional<LocalCaller> Identify() = 0;

  /// The session in which the other end of a connection that was accepted says it is, for who must be fair to callers
  /// before Identify names them: the number gives no right, since it may be forged. Nothing on Linux, where callers are
  /// named at once, and when the system does not say.
  virtual std::optional<std::uint32_t> ClaimedSession() = 0;

  /// Whether the other end is known to have closed the connection, so that nobody waits for an answer any more. Waits
  /// for nothing and takes nothing that came before.
  virtual bool HasHungUp() = 0;
};

/// Where others connect. It belongs to the thread that calls Accept.
class LocalListener {
 public:
  LocalListener() = default;
  LocalListener(const LocalListener&) = delete;
  LocalListener& operator=(const LocalListener&) = delete;
  /// Nobody can connect any more; connections that were accepted stay.
  virtual ~LocalListener() = default;

  /// Waits, without a wake-up, for the next connection. Null once the stop event is signalled. What the system cannot
  /// give for want of descriptors or memory is tried again each second.
  virtual std::unique_ptr<LocalConnection> Accept() = 0;
};

struct LocalListening {
  std::unique_ptr<LocalListener> listener;  ///< Null: nobody can connect.
  std::string problem;                      ///< Why, naming the place; empty otherwise.
};

/// Listens at `place`, one process at a time. `runtime` must outlive the listener and its connections, and so must
/// `stop`, a manual-reset event of it, that ends their waits.
///
/// Linux: `place` is a folder (made when it is missing, mode 0755) in which the socket "channel" lies, of mode 0666:
/// who may ask for what is decided by who asks. A socket that a dead process left is replaced when it belongs to this
/// account; anything else in its place, or a path that is too long for a socket, is a problem. The lock on
/// "channel.lock" beside it says who is alive.
/// Windows: the pipe's name follows from `place`; empty is the installed service's. Logged-on users, administrators,
/// the system and this account may connect, nobody over the network; a pipe of that name that exists already is a
/// problem.
LocalListening ListenLocally(Runtime& runtime, const std::filesystem::path& place, Waitable& stop);

struct LocalConnecting {
  std::unique_ptr<LocalConnection> connection;  ///< Null: not connected.
  std::string problem;                          ///< Why; empty otherwise.
  bool denied = false;                          ///< The system does not let this account reach whoever listens.
};

/// Connects to who listens at `place`. A listener that neither the system's, an administrator's nor this account is (on
/// Linux also: nor the folder's owner) is refused: it may have put itself in the service's place. Windows: the
/// listener can learn who calls and cannot act for the caller. `stop` may be null.
LocalConnecting ConnectLocally(Runtime& runtime, const std::filesystem::path& place, Waitable* stop,
                               SteadyTime deadline);

/// Where the service with this data folder listens, for ListenLocally; empty: the one that uses the default places.
std::filesystem::path ChannelPlace(const std::filesystem::path& data_folder);

/// What a caller is, from what the system says of it: whether it has the listening process's account, is an
/// administrator, has a session that is in use.
constexpr CallerKind CallerKindOf(bool own_account, bool administrator, bool active_session) {
  if (own_account) return CallerKind::kOwnAccount;
  if (administrator) return CallerKind::kAdministrator;
  return active_session ? CallerKind::kInteractiveUser : CallerKind::kOther;
}

}  // namespace platform
