#include "platform/local_channel.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "platform/files.h"
#include "platform/linux/systemd_library.h"
#include "platform/linux/unique_fd.h"
#include "platform/linux/waitables_linux.h"

namespace platform {
namespace {

constexpr char kSocketName[] = "channel";
constexpr char kLockName[] = "channel.lock";
constexpr int kBacklog = 64;

/// Signalled while a descriptor is readable, or has come to its end.
class ReadableFd final : public Waitable, public PollableWaitable {
 public:
  explicit ReadableFd(int fd) : fd_(fd) {}
  int fd() const override { return fd_; }
  bool TryConsume() override {
    pollfd state{.fd = fd_, .events = POLLIN, .revents = 0};
    return ::poll(&state, 1, 0) > 0;
  }

 private:
  const int fd_;
};

ChannelWait WaitFor(Runtime& runtime, Waitable* stop, ReadableFd& readable, SteadyTime deadline) {
  Waitable* const objects[] = {stop, &readable};
  const std::span<Waitable* const> waited = stop == nullptr ? std::span(objects).subspan(1) : std::span(objects);
  const milliseconds left =
      deadline == SteadyTime::max() ? kForever : std::chrono::ceil<milliseconds>(deadline - runtime.clock().Steady());
  const WaitCode code = runtime.WaitAny(waited, left);
  if (code == kWaitTimeout) return ChannelWait::kTimeout;
  if (code == kWaitFailed) return ChannelWait::kClosed;
  return code + 1 == waited.size() ? ChannelWait::kDone : ChannelWait::kStopped;
}

bool IsLoggedOn(uid_t user) {
  char* state = nullptr;
  const SystemdLibrary* const library = SystemdLibrary::Get();
  if (library == nullptr || library->uid_get_state(user, &state) < 0) return false;
  const bool active = std::strcmp(state, "active") == 0;
  std::free(state);  // NOLINT(cppcoreguidelines-no-malloc): the library's
  return active;
}

/// Of the process at the other end, as it was when it connected or began to listen.
std::optional<ucred> PeerOf(int fd) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return std::nullopt;
  return peer;
}

class SocketConnection final : public LocalConnection {
 public:
  SocketConnection(Runtime& runtime, Waitable* stop, UniqueFd fd)
      : runtime_(runtime), stop_(stop), fd_(std::move(fd)), readable_(fd_.get()) {}

  ChannelWait Receive(std::span<char> buffer, SteadyTime deadline, std::size_t& received) override {
    received = 0;
    for (;;) {
      const ssize_t count = ::recv(fd_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
      if (count > 0) {
        received = static_cast<std::size_t>(count);
        return ChannelWait::kDone;
      }
      if (count == 0 || (errno != EAGAIN && errno != EINTR)) return ChannelWait::kClosed;
      if (const ChannelWait wait = WaitFor(runtime_, stop_, readable_, deadline); wait != ChannelWait::kDone) {
        return wait;
      }
    }
  }

  ChannelWait Send(std::string_view bytes, SteadyTime deadline) override {
    while (!bytes.empty()) {
      const ssize_t count = ::send(fd_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
      if (count >= 0) {
        bytes.remove_prefix(static_cast<std::size_t>(count));
        continue;
      }
      if (errno == EINTR) continue;
      if (errno != EAGAIN) return ChannelWait::kClosed;
      if (const ChannelWait wait = WaitForRoom(deadline); wait != ChannelWait::kDone) return wait;
    }
    return ChannelWait::kDone;
  }

  std::optional<LocalCaller> Identify() override {
    const std::optional<ucred> peer = PeerOf(fd_.get());
    if (!peer) return std::nullopt;
    LocalCaller caller;
    caller.kind = CallerKindOf(peer->uid == ::geteuid(), peer->uid == 0, IsLoggedOn(peer->uid));
    caller.user = std::to_string(peer->uid);
    caller.process = static_cast<std::uint32_t>(peer->pid);
    const pid_t leader = ::getsid(peer->pid);
    if (leader > 0) caller.session = static_cast<std::uint32_t>(leader);
    return caller;
  }

  std::optional<std::uint32_t> ClaimedSession() override { return std::nullopt; }

  bool HasHungUp() override {
    // POLLHUP and POLLERR are told unasked. Who only closed its sending side still waits for the answer.
    pollfd state{.fd = fd_.get(), .events = 0, .revents = 0};
    return ::poll(&state, 1, 0) > 0;
  }

 private:
  /// The runtime waits for what is readable: an epoll descriptor is that once the socket takes more.
  ChannelWait WaitForRoom(SteadyTime deadline) {
    const UniqueFd epoll(::epoll_create1(EPOLL_CLOEXEC));
    epoll_event room{.events = EPOLLOUT, .data = {}};
    if (!epoll || ::epoll_ctl(epoll.get(), EPOLL_CTL_ADD, fd_.get(), &room) != 0) return ChannelWait::kClosed;
    ReadableFd writable(epoll.get());
    return WaitFor(runtime_, stop_, writable, deadline);
  }

  Runtime& runtime_;
  Waitable* const stop_;
  const UniqueFd fd_;
  ReadableFd readable_;
};

class SocketListener final : public LocalListener {
 public:
  SocketListener(Runtime& runtime, Waitable& stop, UniqueFd lock, UniqueFd fd, std::filesystem::path file)
      : runtime_(runtime),
        stop_(stop),
        lock_(std::move(lock)),
        fd_(std::move(fd)),
        readable_(fd_.get()),
        file_(std::move(file)) {}
  /// The lock is still held: what lies there is our own.
  ~SocketListener() override { ::unlink(file_.c_str()); }

  std::unique_ptr<LocalConnection> Accept() override {
    constexpr milliseconds kPause(1000);
    for (;;) {
      if (WaitFor(runtime_, &stop_, readable_, SteadyTime::max()) != ChannelWait::kDone) return nullptr;
      UniqueFd fd(::accept4(fd_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
      if (fd) return std::make_unique<SocketConnection>(runtime_, &stop_, std::move(fd));
      const bool went = errno == EAGAIN || errno == ECONNABORTED || errno == EINTR;
      // For want of descriptors or memory the socket stays readable: without a pause it would be asked without an end.
      if (!went && runtime_.Wait(stop_, kPause) == 0) return nullptr;
    }
  }

 private:
  Runtime& runtime_;
  Waitable& stop_;
  const UniqueFd lock_;
  const UniqueFd fd_;
  ReadableFd readable_;
  const std::filesystem::path file_;
};

std::string Problem(const std::filesystem::path& file, std::string_view what) {
  return PathToUtf8(file) + ": " + std::string(what);
}

std::string SystemProblem(const std::filesystem::path& file) {
  return Problem(file, std::system_category().message(errno));
}

/// False when the path is longer than an address holds.
bool SetPath(sockaddr_un& address, const std::filesystem::path& file) {
  address = {};
  address.sun_family = AF_UNIX;
  if (file.native().size() >= sizeof address.sun_path) return false;
  std::memcpy(address.sun_path, file.c_str(), file.native().size());
  return true;
}

constexpr char kTooLong[] = "the path is too long for a socket (107 bytes at most)";

/// Removes the socket of a process that is dead, since the lock is ours. Empty, or why something stays there.
std::string RemoveStale(const std::filesystem::path& file) {
  struct stat found {};
  if (::lstat(file.c_str(), &found) != 0) return errno == ENOENT ? std::string() : SystemProblem(file);
  if (!S_ISSOCK(found.st_mode) || found.st_uid != ::geteuid()) {
    return Problem(file, "something that this account did not make stands in the place of the service's socket");
  }
  return ::unlink(file.c_str()) == 0 ? std::string() : SystemProblem(file);
}

std::string MakeFolder(const std::filesystem::path& folder) {
  using std::filesystem::perms;
  std::error_code error;
  if (std::filesystem::create_directories(folder, error)) {
    const perms everybody = perms::group_read | perms::group_exec | perms::others_read | perms::others_exec;
    std::filesystem::permissions(folder, perms::owner_all | everybody, error);
  }
  return error ? Problem(folder, error.message()) : std::string();
}

}  // namespace

LocalListening ListenLocally(Runtime& runtime, const std::filesystem::path& place, Waitable& stop) {
  const std::filesystem::path file = place / kSocketName;
  sockaddr_un address;
  if (!SetPath(address, file)) return {nullptr, Problem(file, kTooLong)};
  if (std::string problem = MakeFolder(place); !problem.empty()) return {nullptr, std::move(problem)};
  UniqueFd lock(::open((place / kLockName).c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR));
  if (!lock) return {nullptr, SystemProblem(place / kLockName)};
  if (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
    return {nullptr, errno == EWOULDBLOCK ? Problem(file, "another service listens here") : SystemProblem(file)};
  }
  if (std::string problem = RemoveStale(file); !problem.empty()) return {nullptr, std::move(problem)};
  UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  constexpr mode_t kEverybody = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
  if (!fd || ::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::chmod(file.c_str(), kEverybody) != 0 || ::listen(fd.get(), kBacklog) != 0) {
    return {nullptr, SystemProblem(file)};
  }
  return {std::make_unique<SocketListener>(runtime, stop, std::move(lock), std::move(fd), file), {}};
}

LocalConnecting ConnectLocally(Runtime& runtime, const std::filesystem::path& place, Waitable* stop,
                               SteadyTime deadline) {
  constexpr milliseconds kTurn(100);  // of waiting for room in the listener's queue, which no event tells
  const std::filesystem::path file = place / kSocketName;
  sockaddr_un address;
  if (!SetPath(address, file)) return {nullptr, Problem(file, kTooLong)};
  UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  const std::unique_ptr<Event> never = stop == nullptr ? runtime.MakeEvent(EventReset::kManual) : nullptr;
  // Of a local socket it succeeds or fails at once: EAGAIN says that too many wait already.
  while (!fd || ::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    const bool full = errno == EAGAIN;
    const bool denied = errno == EACCES;
    std::string problem = SystemProblem(file);
    const bool busy = fd && full && runtime.clock().Steady() + kTurn < deadline;
    if (!busy || runtime.Wait(stop == nullptr ? *never : *stop, kTurn) == 0)
      return {nullptr, std::move(problem), denied};
  }
  struct stat folder {};
  const std::optional<ucred> listener = PeerOf(fd.get());
  const bool trusted = listener && (listener->uid == 0 || listener->uid == ::geteuid() ||
                                    (::stat(place.c_str(), &folder) == 0 && listener->uid == folder.st_uid));
  if (!trusted) return {nullptr, Problem(file, "another account than the service's listens here")};
  return {std::make_unique<SocketConnection>(runtime, stop, std::move(fd)), {}};
}

std::filesystem::path ChannelPlace(const std::filesystem::path& data_folder) {
  return data_folder.empty() ? GetDefaultPlaces().named_event_folder : data_folder / "run";
}

}  // namespace platform
