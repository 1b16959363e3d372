#include "platform/process_host.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <thread>

#include "platform/linux/unique_fd.h"
#include "platform/local.h"

namespace platform {
namespace {

class InterruptWatcherTest : public testing::Test {
 protected:
  bool Comes(Event& event) { return runtime_->Wait(event, std::chrono::seconds(20)) == 0; }

  const std::unique_ptr<Runtime> runtime_ = MakeRealRuntime({});
  const std::unique_ptr<Event> reloaded_ = runtime_->MakeEvent(EventReset::kAuto);
  const std::unique_ptr<Event> stopped_ = runtime_->MakeEvent(EventReset::kAuto);
};

TEST_F(InterruptWatcherTest, SignalsBecomeOneStopAndEachReload) {
  std::atomic<int> stops = 0;
  std::string problem;
  const auto stop = [&] {
    ++stops;
    stopped_->Set();
  };
  const auto watcher = InterruptWatcher::Start({.stop = stop, .reload = [&] { reloaded_->Set(); }}, &problem);
  ASSERT_TRUE(watcher) << problem;
  EXPECT_FALSE(InterruptWatcher::Start({}, &problem)) << "one at a time";
  EXPECT_NE(problem, "");
  for (int i = 0; i < 2; ++i) {
    ::kill(::getpid(), SIGHUP);
    EXPECT_TRUE(Comes(*reloaded_));
  }
  ::kill(::getpid(), SIGINT);
  EXPECT_TRUE(Comes(*stopped_));
  ::kill(::getpid(), SIGTERM);
  // Signals are passed on one by one: once it is no longer pending, and one more has been answered, it was looked at.
  sigset_t pending;
  do {
    std::this_thread::yield();
    ::sigpending(&pending);
  } while (::sigismember(&pending, SIGTERM) == 1);
  ::kill(::getpid(), SIGHUP);
  EXPECT_TRUE(Comes(*reloaded_));
  EXPECT_EQ(stops, 1);
}

TEST_F(InterruptWatcherTest, WishesThatComeAtTheEndDoNotKill) {
  const auto held = runtime_->MakeEvent(EventReset::kManual);
  const auto stop = [&] {
    stopped_->Set();
    runtime_->Wait(*held, kForever);
  };
  auto watcher = InterruptWatcher::Start({.stop = stop, .reload = {}});
  ASSERT_TRUE(watcher);
  ::kill(::getpid(), SIGTERM);
  EXPECT_TRUE(Comes(*stopped_));
  ::kill(::getpid(), SIGTERM);  // pending, since the watcher is held
  held->Set();
  watcher.reset();
}

TEST_F(InterruptWatcherTest, WithoutReloadAHangUpStops) {
  for (int i = 0; i < 2; ++i) {  // and a new watcher may follow the old one
    const auto watcher = InterruptWatcher::Start({.stop = [&] { stopped_->Set(); }, .reload = {}});
    ASSERT_TRUE(watcher);
    ::kill(::getpid(), SIGHUP);
    EXPECT_TRUE(Comes(*stopped_));
  }
}

// In a process of its own, whose terminal it opens and closes. The exit code: 0, or the number of what failed.
int LiveInATerminal() {
  if (::setsid() < 0) return 1;
  UniqueFd other_end(::posix_openpt(O_RDWR | O_NOCTTY));
  if (!other_end || ::grantpt(other_end.get()) != 0 || ::unlockpt(other_end.get()) != 0) return 2;
  const UniqueFd terminal(::open(::ptsname(other_end.get()), O_RDWR));  // the first one of a session becomes its own
  const auto runtime = MakeRealRuntime({});
  const auto reloaded = runtime->MakeEvent(EventReset::kAuto);
  const auto stopped = runtime->MakeEvent(EventReset::kAuto);
  const auto watcher = InterruptWatcher::Start(
      {.stop = [&] { stopped->Set(); }, .reload = [&] { reloaded->Set(); }, .ends_with_terminal = true});
  if (!watcher) return 3;
  ::kill(::getpid(), SIGHUP);
  if (runtime->Wait(*reloaded, std::chrono::seconds(20)) != 0) return 4;
  other_end = UniqueFd();
  if (runtime->Wait(*stopped, std::chrono::seconds(20)) != 0) return 5;
  return 0;
}

TEST_F(InterruptWatcherTest, TheEndOfTheTerminalStops) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(LiveInATerminal());
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0) << "ended with " << WEXITSTATUS(status);
}

TEST_F(InterruptWatcherTest, APipeThatNobodyReadsDoesNotKill) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  ::close(ends[0]);
  const UniqueFd input(ends[1]);
  const auto watcher = InterruptWatcher::Start({});
  ASSERT_TRUE(watcher);
  EXPECT_EQ(::write(input.get(), "x", 1), -1);
  EXPECT_EQ(errno, EPIPE);
}

// The end-to-end test has a socket in the file system.
TEST(NotifyServiceManagerTest, StateReachesAnAbstractSocket) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string name = "tvk-notify-" + std::to_string(::getpid());
  std::copy(name.begin(), name.end(), address.sun_path + 1);
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  const UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), length), 0);
  ::setenv("NOTIFY_SOCKET", ("@" + name).c_str(), 1);
  EXPECT_EQ(NotifyServiceManager("READY=1\nSTATUS=up"), "");
  ::unsetenv("NOTIFY_SOCKET");
  std::string heard(256, '\0');
  heard.resize(static_cast<std::size_t>(std::max<ssize_t>(0, ::recv(socket.get(), heard.data(), 256, MSG_DONTWAIT))));
  EXPECT_EQ(heard, "READY=1\nSTATUS=up");
}

TEST(NotifyServiceManagerTest, NobodyAndNonsenseAreTolerated) {
  EXPECT_EQ(NotifyServiceManager("READY=1"), "") << "no manager listens";
  for (const std::string& name :
       {std::string("relative"), "/" + std::string(200, 'x'), std::string("/no/such/socket")}) {
    ::setenv("NOTIFY_SOCKET", name.c_str(), 1);
    EXPECT_NE(NotifyServiceManager("READY=1").find(name), std::string::npos) << name;
  }
  ::unsetenv("NOTIFY_SOCKET");
}

}  // namespace
}  // namespace platform
