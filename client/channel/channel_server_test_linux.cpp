// Callers of another account, which a thread of the superuser's can be.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "client/channel/channel_client.h"
#include "client/channel/channel_server.h"
#include "platform/local.h"
#include "testing/temp_folder.h"

namespace TVK {
namespace {

TEST(ChannelServerAccounts, OneThatIsNotLoggedOnIsKnownAndPutOutAtOnce) {
  if (::geteuid() != 0) return;  // only the superuser can be somebody else
  constexpr int kNobody = 65534;
  // Inside a container the session that it was started from has no number: then one of our own.
  if (::getsid(0) == 0) {
    ASSERT_NE(::setsid(), -1);
  }
  const TempFolder folder;
  std::filesystem::permissions(folder.path(), std::filesystem::perms{0755});
  const std::filesystem::path place = folder.path() / "run";
  const auto runtime = platform::MakeRealRuntime({});
  const Log log;
  Refusals refusals(log);
  ChannelServer server(*runtime, log, refusals, [](const platform::LocalCaller& caller, std::string_view, const auto&) {
    return ChannelServer::Answer{ToJson(ChannelAnswer{static_cast<int>(caller.kind), {}, {}})};
  });
  std::atomic<bool> agent_runs = false;
  ASSERT_EQ(server.Start(place, [&](std::uint32_t session) { return agent_runs && session != 0; }), "");
  bool reachable = false;  // for others: the temporary folder may lie where nobody else comes
  std::jthread nobody([&] {
    // The kernel's call, since the C library's changes every thread.
    ASSERT_EQ(::syscall(SYS_setresuid, -1, kNobody, -1), 0);
    reachable = ::faccessat(AT_FDCWD, place.c_str(), X_OK, AT_EACCESS) == 0;
    if (!reachable) return;
    ChannelClient client(*runtime, place);
    EXPECT_EQ(client.Ask({}).reason, "refused: this account is not logged on");
    agent_runs = true;
    EXPECT_EQ(client.Ask({}).result, static_cast<int>(platform::CallerKind::kInteractiveUser))
        << "of a session in which a program of ours was started";
  });
  nobody.join();
  if (!reachable) return;
  EXPECT_EQ(refusals.counts()[static_cast<std::size_t>(Refusal::kNotAllowed)], 1u);
  ChannelClient own(*runtime, place);
  EXPECT_EQ(own.Ask({}).result, static_cast<int>(platform::CallerKind::kOwnAccount));
}

}  // namespace
}  // namespace TVK
