#include "platform/process_host.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "platform/linux/unique_fd.h"
#include "platform/local.h"
#include "platform/service_control.h"

namespace platform {
namespace {

TEST(InterruptWatcherTest, SignalsBecomeOneStopAndEachReload) {
  const auto runtime = MakeRealRuntime({});
  const auto reloaded = runtime->MakeEvent(EventReset::kAuto);
  const auto stopped = runtime->MakeEvent(EventReset::kAuto);
  std::atomic<int> stops = 0;
  std::string problem;
  const auto watcher = InterruptWatcher::Start({.stop =
                                                    [&] {
                                                      ++stops;
                                                      stopped->Set();
                                                    },
                                                .reload = [&] { reloaded->Set(); }},
                                               &problem);
  ASSERT_TRUE(watcher) << problem;
  EXPECT_FALSE(InterruptWatcher::Start({}, &problem)) << "one at a time";
  EXPECT_NE(problem, "");
  for (int i = 0; i < 2; ++i) {
    ::kill(::getpid(), SIGHUP);
    EXPECT_EQ(runtime->Wait(*reloaded, std::chrono::seconds(20)), 0u);
  }
  ::kill(::getpid(), SIGINT);
  EXPECT_EQ(runtime->Wait(*stopped, std::chrono::seconds(20)), 0u);
  ::kill(::getpid(), SIGTERM);
  // Signals are passed on one by one: once it is no longer pending, and one more has been answered, it was looked at.
  sigset_t pending;
  do {
    std::this_thread::yield();
    ::sigpending(&pending);
  } while (::sigismember(&pending, SIGTERM) == 1);
  ::kill(::getpid(), SIGHUP);
  EXPECT_EQ(runtime->Wait(*reloaded, std::chrono::seconds(20)), 0u);
  EXPECT_EQ(stops, 1);
}

TEST(InterruptWatcherTest, WishesThatComeAtTheEndDoNotKill) {
  const auto runtime = MakeRealRuntime({});
  const auto stopped = runtime->MakeEvent(EventReset::kAuto);
  const auto held = runtime->MakeEvent(EventReset::kManual);
  auto watcher = InterruptWatcher::Start({.stop =
                                              [&] {
                                                stopped->Set();
                                                runtime->Wait(*held, kForever);
                                              },
                                          .reload = {}});
  ASSERT_TRUE(watcher);
  ::kill(::getpid(), SIGTERM);
  EXPECT_EQ(runtime->Wait(*stopped, std::chrono::seconds(20)), 0u);
  ::kill(::getpid(), SIGTERM);  // pending, since the watcher is held
  held->Set();
  watcher.reset();
}

TEST(InterruptWatcherTest, WithoutReloadAHangUpStops) {
  const auto runtime = MakeRealRuntime({});
  const auto stopped = runtime->MakeEvent(EventReset::kAuto);
  for (int i = 0; i < 2; ++i) {  // and a new watcher may follow the old one
    const auto watcher = InterruptWatcher::Start({.stop = [&] { stopped->Set(); }, .reload = {}});
    ASSERT_TRUE(watcher);
    ::kill(::getpid(), SIGHUP);
    EXPECT_EQ(runtime->Wait(*stopped, std::chrono::seconds(20)), 0u);
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

TEST(InterruptWatcherTest, TheEndOfTheTerminalStops) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(LiveInATerminal());
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0) << "ended with " << WEXITSTATUS(status);
}

TEST(InterruptWatcherTest, APipeThatNobodyReadsDoesNotKill) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  ::close(ends[0]);
  const UniqueFd input(ends[1]);
  const auto watcher = InterruptWatcher::Start({});
  ASSERT_TRUE(watcher);
  EXPECT_EQ(::write(input.get(), "x", 1), -1);
  EXPECT_EQ(errno, EPIPE);
}

// Listens where NOTIFY_SOCKET points, as systemd does.
class NotifyServiceManagerTest : public testing::Test {
 protected:
  ~NotifyServiceManagerTest() override { ::unsetenv("NOTIFY_SOCKET"); }

  void Listen(const std::string& name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name.data(), name.size());
    if (name.front() == '@') address.sun_path[0] = '\0';
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    socket_ = UniqueFd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), length), 0) << std::strerror(errno);
    ::setenv("NOTIFY_SOCKET", name.c_str(), 1);
  }

  std::string Heard() {
    std::array<char, 256> text{};
    const ssize_t length = ::recv(socket_.get(), text.data(), text.size(), MSG_DONTWAIT);
    return length < 0 ? "nothing" : std::string(text.data(), static_cast<std::size_t>(length));
  }

  UniqueFd socket_;
};

TEST_F(NotifyServiceManagerTest, StateReachesSocketsOfBothKinds) {
  const std::string number = std::to_string(::getpid());
  const std::string file = testing::TempDir() + "tvk-notify-" + number;
  for (const std::string& name : {file, "@tvk-notify-" + number}) {
    SCOPED_TRACE(name);
    ASSERT_NO_FATAL_FAILURE(Listen(name));
    EXPECT_EQ(NotifyServiceManager("READY=1\nSTATUS=up"), "");
    EXPECT_EQ(Heard(), "READY=1\nSTATUS=up");
  }
  ::unlink(file.c_str());
}

TEST_F(NotifyServiceManagerTest, NobodyAndNonsenseAreTolerated) {
  EXPECT_EQ(NotifyServiceManager("READY=1"), "") << "no manager listens";
  for (const std::string& name :
       {std::string("relative"), "/" + std::string(200, 'x'), std::string("/no/such/socket")}) {
    ::setenv("NOTIFY_SOCKET", name.c_str(), 1);
    EXPECT_NE(NotifyServiceManager("READY=1").find(name), std::string::npos) << name;
  }
}

TEST(ServiceControlLinuxTest, EveryFunctionNamesTheOtherManager) {
  using std::chrono::milliseconds;
  for (const std::string& answer :
       {InstallService({}), UninstallService(milliseconds(0)), LaunchService({}, milliseconds(0)),
        HaltService(milliseconds(0)), ReadServiceReport().problem, RunServiceProgram({}).problem}) {
    EXPECT_EQ(answer, "there is no service manager of that kind; use systemd");
  }
  EXPECT_FALSE(RunServiceProgram({}).served);
}

}  // namespace
}  // namespace platform
