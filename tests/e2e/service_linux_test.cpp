// How the service lives under a service manager of this system: signals and sd_notify.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/linux/unique_fd.h"
#include "testing/recorded_tree.h"
#include "tests/e2e/service_under_test.h"

namespace {

/// Without --console, as the service manager starts it.
class Daemon : public ChildProcess {
 public:
  explicit Daemon(const ServiceFolder& folder) : ChildProcess(ProgramBeside("TVKClientService"), folder.Arguments()) {}
};

/// The manager's end of NOTIFY_SOCKET, for programs that are started while it lives.
class NotifySocket {
 public:
  explicit NotifySocket(const std::filesystem::path& path) : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    EXPECT_LT(path.string().size(), sizeof address.sun_path);
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    EXPECT_EQ(::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::setenv("NOTIFY_SOCKET", path.c_str(), 1);
  }
  ~NotifySocket() { ::unsetenv("NOTIFY_SOCKET"); }
  NotifySocket(const NotifySocket&) = delete;
  NotifySocket& operator=(const NotifySocket&) = delete;

  /// Takes what has arrived; whether `text` has arrived up to now.
  bool Got(const std::string& text) {
    std::array<char, 1024> buffer;
    ssize_t size = 0;
    while ((size = ::recv(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0)
      heard_.append(buffer.data(), static_cast<std::size_t>(size)) += '\n';
    return heard_.find(text) != heard_.npos;
  }

 private:
  const platform::UniqueFd socket_;
  std::string heard_;
};

/// A pipe in which there is no room left, and that nobody reads.
class FullPipe {
 public:
  explicit FullPipe(const std::filesystem::path& path) {
    EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
    both_ends_ = platform::UniqueFd(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    const std::string block(4096, '\n');
    while (::write(both_ends_.get(), block.data(), block.size()) > 0) {
    }
    EXPECT_EQ(errno, EAGAIN);
  }

 private:
  platform::UniqueFd both_ends_;
};

constexpr std::chrono::seconds kStopLimit(5);

TEST(Daemon, TellsItsManagerWhatItDoesAndReadsThePolicyAgainWhenToldTo) {
  const ServiceFolder folder;
  folder.WritePolicy(CpuPolicy("full"));
  const TempFolder socket_folder;
  NotifySocket socket(socket_folder.path() / "notify");
  Daemon service(folder);
  ASSERT_TRUE(service.WaitFor([&] { return socket.Got("READY=1\n"); }, kPatience));
  ASSERT_TRUE(service.WaitFor(
      [&] { return folder.CountInLog("CpuEventMonitor.log", "ReadAndUpdateDatasetSettings: delay") == 1; }, kPatience));
  const auto count = [&] { return folder.CountInLog("ConfigPolicyAgent.log", "LoadTelemetryPolicy: accepted = 1"); };
  const std::size_t before = count();
  service.Ask(ChildRequest::kReload);
  EXPECT_TRUE(service.WaitFor([&] { return count() > before; }, kPatience));
  EXPECT_FALSE(socket.Got("STOPPING=1")) << "being told to read again is no wish to end";
  service.Ask(ChildRequest::kTerminate);
  EXPECT_EQ(service.WaitForEnd(kStopLimit), 0);
  EXPECT_TRUE(socket.Got("STOPPING=1\n"));
  EXPECT_TRUE(service.Lines().empty()) << "only a console shows records";
}

TEST(Daemon, EndsInTimeWhenAskedRightAfterItsStart) {
  const ServiceFolder folder;
  folder.WritePolicy(CpuPolicy("full"));
  for (const ChildRequest request : {ChildRequest::kTerminate, ChildRequest::kInterrupt}) {
    Daemon service(folder);
    ASSERT_TRUE(service.WaitFor([&] { return exists(folder.data() / "log" / "EventManager.log"); }, kPatience));
    service.Ask(request);
    EXPECT_EQ(service.WaitForEnd(kStopLimit), 0);
    std::filesystem::remove_all(folder.data());
  }
}

TEST(Service, FollowsThePolicyAndEndsInTimeWhenNobodyTakesItsOutput) {
  const ServiceFolder folder;
  folder.WritePolicy(CpuPolicy("full"));
  const std::filesystem::path pipe = folder.policy().parent_path() / "output";
  const FullPipe full(pipe);
  std::vector<std::string> words = {"-c", R"(exec "$0" --console "$@" >)" + pipe.string(),
                                    ProgramBeside("TVKClientService")};
  for (const std::string& argument : folder.Arguments())
    words.push_back(argument);
  ChildProcess service("/bin/sh", words);
  const auto logged = [&](const char* text) {
    return service.WaitFor([&] { return folder.CountInLog("EventManager.log", text) == 1; }, kPatience);
  };
  ASSERT_TRUE(logged("EventManager::NotificationProcessorThread Entry"));
  folder.WritePolicy(CpuPolicy("none"));
  EXPECT_TRUE(logged("StopAndRemoveFromList"));
  service.Ask(ChildRequest::kTerminate);
  EXPECT_EQ(service.WaitForEnd(kStopLimit), 0);
}

TEST(Service, RegionThatChangesGivesOneNewDeviceContext) {
  const ServiceFolder folder;
  folder.WritePolicy(CpuPolicy("full"));
  const platform::RecordedTree tree{{"/etc/default/locale", "LANG=de_DE.UTF-8\n"},
                                    {"/proc/stat", "cpu 1 0 0 9\n"},
                                    {"/proc/cpuinfo", "processor : 0\nmodel name : Recorded\n"},
                                    {"/sys/devices/system/cpu/online", "0\n"}};
  ConsoleService service(folder, {"--sysroot", tree.root().string()});
  const auto logged = [&](const std::string& text) {
    return service.WaitFor([&] { return folder.CountInLog("EventManager.log", text) == 1; }, kPatience);
  };
  ASSERT_TRUE(service.WaitForLine("DeviceInit", kPatience));
  ASSERT_TRUE(logged("EventManager::NotificationProcessorThread Entry")) << "the first context is there by then";
  tree.Write("/etc/default/locale", "LANG=de_AT.UTF-8\n");
  ASSERT_TRUE(logged("EventManager::OnDeviceContextChanges Exit")) << "the monitors hear of the second one";
  service.Ask(ChildRequest::kTerminate);
  EXPECT_EQ(service.WaitForEnd(kStopLimit), 0);
  ExpectOneNewDeviceContext(folder, L"DE", L"AT");
}

}  // namespace
