#include "platform/process_host.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <system_error>
#include <thread>

#include "platform/linux/unique_fd.h"
#include "platform/linux/wake.h"

namespace platform {
namespace {

std::string ErrnoText(const std::string& what) {
  return what + ": " + std::generic_category().message(errno);
}

// Whether the process belongs to a terminal that still exists.
bool HasTerminal() {
  return static_cast<bool>(UniqueFd(::open("/dev/tty", O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)));
}

class SignalWatcher final : public InterruptWatcher {
 public:
  explicit SignalWatcher(InterruptCallbacks callbacks) : callbacks_(std::move(callbacks)) {}

  ~SignalWatcher() override {
    if (thread_.joinable()) {
      SignalEventFd(end_.get());
      thread_.join();
    }
    // Further wishes to end that are still pending would end the process once they are no longer blocked.
    const timespec at_once{};
    while (stopped_ && ::sigtimedwait(&watched_, nullptr, &at_once) > 0) {
    }
    if (blocked_) {
      ::sigaction(SIGPIPE, &pipe_before_, nullptr);
      ::sigaction(SIGXFSZ, &size_before_, nullptr);
      ::pthread_sigmask(SIG_SETMASK, &mask_before_, nullptr);
    }
    if (held_) taken_ = false;
  }
  SignalWatcher(const SignalWatcher&) = delete;
  SignalWatcher& operator=(const SignalWatcher&) = delete;

  // Empty, or what went wrong.
  std::string Begin() {
    held_ = !taken_.exchange(true);
    if (!held_) return "the process has an interrupt watcher already";
    ::sigemptyset(&watched_);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
      ::sigaddset(&watched_, signal);
    ::pthread_sigmask(SIG_BLOCK, &watched_, &mask_before_);
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &ignore, &pipe_before_);
    ::sigaction(SIGXFSZ, &ignore, &size_before_);
    blocked_ = true;
    struct sigaction hang_up {};
    ::sigaction(SIGHUP, nullptr, &hang_up);
    // A blocked signal is delivered even where it is ignored.
    ends_with_terminal_ = callbacks_.ends_with_terminal && hang_up.sa_handler != SIG_IGN && HasTerminal();
    signals_ = UniqueFd(::signalfd(-1, &watched_, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!signals_) return ErrnoText("signalfd");
    end_ = UniqueFd(::eventfd(0, EFD_CLOEXEC));
    if (!end_) return ErrnoText("eventfd");
    try {
      thread_ = std::thread([this] { Run(); });
    } catch (const std::system_error& failure) {
      return std::string("no thread for the signals: ") + failure.what();
    }
    return {};
  }

 private:
  void Run() {
    ::pthread_setname_np(::pthread_self(), "signals");
    pollfd waited[] = {{signals_.get(), POLLIN, 0}, {end_.get(), POLLIN, 0}};
    for (;;) {
      if (::poll(waited, std::size(waited), -1) < 0) continue;  // only a signal interrupts it
      if (waited[1].revents != 0) return;
      signalfd_siginfo signal;
      if (::read(signals_.get(), &signal, sizeof signal) != sizeof signal) continue;
      try {
        if (signal.ssi_signo == SIGHUP && callbacks_.reload && !TerminalEnded(signal)) {
          callbacks_.reload();
        } else if (!stopped_) {
          if (callbacks_.stop) callbacks_.stop();
          stopped_ = true;
        }
      } catch (...) {
        // Whoever sent it sees that nothing happens: the next signal is another try.
      }
    }
  }

  // Whether a SIGHUP means that the process is to follow its terminal. The kernel sends it to some of the terminal's
  // processes, shells pass it on to others; from a person it comes while the terminal is there.
  bool TerminalEnded(const signalfd_siginfo& hang_up) const {
    return ends_with_terminal_ && (hang_up.ssi_code == SI_KERNEL || !HasTerminal());
  }

  static inline std::atomic<bool> taken_ = false;

  const InterruptCallbacks callbacks_;
  bool held_ = false;
  bool blocked_ = false;
  sigset_t watched_{};
  sigset_t mask_before_{};
  struct sigaction pipe_before_ {};
  struct sigaction size_before_ {};
  bool ends_with_terminal_ = false;  ///< Asked for, and there is a terminal.
  bool stopped_ = false;             ///< The thread's own while it runs.
  UniqueFd signals_;
  UniqueFd end_;  ///< An eventfd; readable: end.
  std::thread thread_;
};

}  // namespace

std::unique_ptr<InterruptWatcher> InterruptWatcher::Start(InterruptCallbacks callbacks, std::string* problem) {
  auto watcher = std::make_unique<SignalWatcher>(std::move(callbacks));
  const std::string text = watcher->Begin();
  if (text.empty()) return watcher;
  if (problem != nullptr) *problem = text;
  return nullptr;
}

std::string NotifyServiceManager(std::string_view state) {
  const char* const place = std::getenv("NOTIFY_SOCKET");
  if (place == nullptr || *place == '\0') return {};
  const std::string_view name = place;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if ((name.front() != '/' && name.front() != '@') || name.size() >= sizeof address.sun_path) {
    return "NOTIFY_SOCKET is no socket's name: " + std::string(name);
  }
  std::memcpy(address.sun_path, name.data(), name.size());
  if (name.front() == '@') address.sun_path[0] = '\0';  // a name that is in no file system
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());

  const UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket) return ErrnoText("socket");
  if (::sendto(socket.get(), state.data(), state.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address),
               length) < 0) {
    return ErrnoText("cannot tell " + std::string(name));
  }
  return {};
}

}  // namespace platform
