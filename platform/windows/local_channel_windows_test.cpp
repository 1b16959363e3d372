// Wine obeys neither a pipe's access list nor most of its flags: they are looked at as data.
#include "platform/windows/local_channel_windows.h"

#include <gtest/gtest.h>

#include <array>

#include "platform/local.h"
#include "platform/local_channel.h"
#include "platform/windows/security.h"
#include "testing/temp_folder.h"

namespace platform::windows {
namespace {

TEST(LocalPipe, NobodyElseServesAndNobodyCallsOverTheNetwork) {
  EXPECT_TRUE(PipeOpenMode(true) & FILE_FLAG_FIRST_PIPE_INSTANCE);
  EXPECT_FALSE(PipeOpenMode(false) & FILE_FLAG_FIRST_PIPE_INSTANCE);
  EXPECT_TRUE(kPipeMode & PIPE_REJECT_REMOTE_CLIENTS);
  EXPECT_EQ(kPipeClientFlags & SECURITY_SQOS_PRESENT, DWORD{SECURITY_SQOS_PRESENT});
  EXPECT_EQ(kPipeClientFlags & (SECURITY_IDENTIFICATION | SECURITY_IMPERSONATION), DWORD{SECURITY_IDENTIFICATION});
  const std::string list = PipeAccessList("S-1-5-80-1");
  EXPECT_TRUE(list.starts_with("O:S-1-5-80-1D:P(A;;GA;;;SY)")) << list;
  EXPECT_EQ(list.find("(D;"), std::string::npos) << "an administrator who works from afar may call: " << list;
  for (const char* const everybody : {";;;WD)", ";;;AU)", ";;;BU)", ";;;AN)"})
    EXPECT_EQ(list.find(everybody), std::string::npos) << list;
  EXPECT_TRUE(SecurityAttributes(list).ok());
}

TEST(LocalPipe, AnInstallationHasItsOwnName) {
  EXPECT_EQ(PipeName({}), L"\\\\.\\pipe\\TVKClientService");
  EXPECT_EQ(PipeName("C:\\Data\\X"), PipeName("c:/data/y/../x"));
  EXPECT_EQ(PipeName("C:\\Data\\X"), PipeName("C:\\Data\\X\\"));
  EXPECT_NE(PipeName("C:\\Data\\X"), PipeName("C:\\Data\\Y"));
  EXPECT_NE(PipeName("C:\\Data\\X"), PipeName({}));
}

/// Windows, as it is documented to answer about one name.
class PlayedPipes final : public PipeSystem {
 public:
  /// What it answers in turn: to a first instance, to a client, to a further instance.
  struct Answers {
    DWORD first;
    DWORD client;
    DWORD further;
    std::string owner;
  };
  explicit PlayedPipes(const Answers& answers) : answers_(answers) {}

  DWORD MakeInstance(bool first, UniqueFile& pipe) override {
    asked += first ? "first " : "further ";
    return Give(first ? answers_.first : answers_.further, pipe);
  }
  DWORD Connect(UniqueFile& pipe) override {
    asked += "client ";
    return Give(answers_.client, pipe);
  }
  std::string OwnerOf(HANDLE pipe) override {
    EXPECT_NE(pipe, INVALID_HANDLE_VALUE);
    return answers_.owner;
  }

  std::string asked;

 private:
  static DWORD Give(DWORD error, UniqueFile& pipe) {
    if (error == ERROR_SUCCESS) pipe.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    return error;
  }

  const Answers answers_;
};

TEST(LocalPipe, WhoKeepsADeadServicesPipeKeepsNoServiceFromItsName) {
  const std::string system = "S-1-5-18";
  const std::string administrators = "S-1-5-32-544";
  const std::string user = "S-1-5-21-1-2-3-1001";
  constexpr DWORD kDenied = ERROR_ACCESS_DENIED;
  constexpr DWORD kGone = ERROR_FILE_NOT_FOUND;
  const struct {
    const char* what;
    PlayedPipes::Answers answers;
    DWORD result;
    const char* asked;
  } rows[] = {{"nobody has the name", {0, kGone, 0, user}, 0, "first "},
              {"another service listens", {kDenied, 0, 0, system}, kDenied, "first client "},
              {"one whose instances are all in use", {kDenied, ERROR_PIPE_BUSY, 0, system}, kDenied, "first client "},
              {"somebody's who lets nobody in", {kDenied, kDenied, 0, system}, kDenied, "first client "},
              {"a client holds the system's", {kDenied, kGone, 0, system}, 0, "first client further "},
              {"an administrator's", {kDenied, kGone, 0, administrators}, 0, "first client further "},
              {"this account's", {kDenied, kGone, 0, ProcessUserSid()}, 0, "first client further "},
              {"a squatter's who left the door open", {kDenied, kGone, 0, user}, kDenied, "first client further "},
              {"nobody says whose", {kDenied, kGone, 0, ""}, kDenied, "first client further "},
              {"a squatter was faster", {kDenied, kGone, kDenied, system}, kDenied, "first client further "},
              {"no memory", {ERROR_NOT_ENOUGH_MEMORY, kGone, 0, system}, ERROR_NOT_ENOUGH_MEMORY, "first "}};
  for (const auto& [what, answers, result, asked] : rows) {
    SCOPED_TRACE(what);
    PlayedPipes pipes(answers);
    UniqueFile pipe;
    EXPECT_EQ(TakePipeName(pipes, pipe), result);
    EXPECT_EQ(static_cast<bool>(pipe), result == 0);
    EXPECT_EQ(pipes.asked, asked);
  }
}

TEST(LocalPipe, OfAClientThatWasQuietNothingIsKept) {
  const TempFolder place;
  const auto runtime = MakeRealRuntime({});
  const auto stop = runtime->MakeEvent(EventReset::kManual);
  const LocalListening listening = ListenLocally(*runtime, place.path(), *stop);
  ASSERT_NE(listening.listener, nullptr) << listening.problem;
  const struct {
    bool quiet;
    DWORD error;
  } rows[] = {{true, ERROR_PIPE_NOT_CONNECTED}, {false, ERROR_BROKEN_PIPE}};
  for (const auto& [quiet, error] : rows) {
    const UniqueFile client(CreateFileW(PipeName(place.path()).c_str(), kPipeClientRights, 0, nullptr, OPEN_EXISTING,
                                        SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr));
    ASSERT_TRUE(client);
    std::unique_ptr<LocalConnection> server = listening.listener->Accept();
    ASSERT_NE(server, nullptr);
    std::array<char, 8> buffer;
    std::size_t count = 0;
    const SteadyTime now = runtime->clock().Steady();
    if (quiet) {
      EXPECT_EQ(server->Receive(buffer, now, count), ChannelWait::kTimeout);
    } else {
      EXPECT_EQ(server->Send("last", now + std::chrono::seconds(20)), ChannelWait::kDone);
    }
    server = nullptr;
    DWORD read = 0;
    if (!quiet) {
      EXPECT_TRUE(ReadFile(client.get(), buffer.data(), static_cast<DWORD>(buffer.size()), &read, nullptr));
      EXPECT_EQ(std::string(buffer.data(), read), "last") << "it can still be read";
    }
    EXPECT_FALSE(ReadFile(client.get(), buffer.data(), static_cast<DWORD>(buffer.size()), &read, nullptr));
    EXPECT_EQ(GetLastError(), error);
  }
}

}  // namespace
}  // namespace platform::windows
