#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

#include "platform/linux/unique_fd.h"
#include "platform/local.h"
#include "platform/local_channel.h"
#include "testing/temp_folder.h"

namespace platform {
namespace {

sockaddr_un AddressOf(const std::filesystem::path& file) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, file.c_str(), sizeof address.sun_path - 1);
  return address;
}

// What a service leaves that was killed.
void LeaveSocket(const std::filesystem::path& file) {
  const UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM, 0));
  const sockaddr_un address = AddressOf(file);
  ASSERT_EQ(::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
}

TEST(LocalChannelFiles, OnlyADeadServicesOwnSocketIsReplaced) {
  const TempFolder temp;
  const auto runtime = MakeRealRuntime({});
  const auto stop = runtime->MakeEvent(EventReset::kManual);
  const auto problem = [&](const char* place) { return ListenLocally(*runtime, temp.path() / place, *stop).problem; };
  for (const char* const place : {"dead", "file", "foreign"})
    std::filesystem::create_directory(temp.path() / place);
  LeaveSocket(temp.path() / "dead" / "channel");
  EXPECT_EQ(problem("dead"), "");
  EXPECT_FALSE(std::filesystem::exists(temp.path() / "dead" / "channel")) << "it goes with the listener";

  std::ofstream(temp.path() / "file" / "channel") << "x";
  EXPECT_NE(problem("file"), "");
  EXPECT_EQ(std::filesystem::file_size(temp.path() / "file" / "channel"), 1u);
  if (::geteuid() == 0) {
    LeaveSocket(temp.path() / "foreign" / "channel");
    ASSERT_EQ(::chown((temp.path() / "foreign" / "channel").c_str(), 65534, 65534), 0);
    EXPECT_NE(problem("foreign"), "");
  }
  EXPECT_NE(problem(std::string(108, 'x').c_str()).find("too long"), std::string::npos);
}

TEST(LocalChannelFiles, EverybodyFindsTheSocketWhateverTheUmask) {
  const TempFolder temp;
  const auto runtime = MakeRealRuntime({});
  const auto stop = runtime->MakeEvent(EventReset::kManual);
  const mode_t before = ::umask(077);
  const LocalListening listening = ListenLocally(*runtime, temp.path() / "run", *stop);
  ::umask(before);
  ASSERT_NE(listening.listener, nullptr) << listening.problem;
  const auto mode = [&](const char* file) { return std::filesystem::status(temp.path() / file).permissions(); };
  EXPECT_EQ(mode("run"), std::filesystem::perms{0755});
  EXPECT_EQ(mode("run/channel"), std::filesystem::perms{0666});
  EXPECT_EQ(mode("run/channel.lock"), std::filesystem::perms{0600});
}

TEST(LocalChannelClients, OneThatClosedItsSendingSideStillWaits) {
  const TempFolder temp;
  const auto runtime = MakeRealRuntime({});
  const auto stop = runtime->MakeEvent(EventReset::kManual);
  const LocalListening listening = ListenLocally(*runtime, temp.path(), *stop);
  ASSERT_NE(listening.listener, nullptr) << listening.problem;
  UniqueFd client(::socket(AF_UNIX, SOCK_STREAM, 0));
  const sockaddr_un address = AddressOf(temp.path() / "channel");
  ASSERT_EQ(::connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const std::unique_ptr<LocalConnection> server = listening.listener->Accept();
  ASSERT_NE(server, nullptr);
  ASSERT_EQ(::shutdown(client.get(), SHUT_WR), 0);
  EXPECT_FALSE(server->HasHungUp());
  client = UniqueFd();
  EXPECT_TRUE(server->HasHungUp());
}

}  // namespace
}  // namespace platform
