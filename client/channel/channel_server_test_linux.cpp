// Callers of another account, which a thread of the superuser's can be.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <mutex>
#include <optional>
#include <thread>

#include "client/channel/channel_client.h"
#include "client/channel/channel_server.h"
#include "platform/local.h"
#include "testing/temp_folder.h"

namespace TVK {
namespace {

TEST(ChannelServerAccounts, AnotherOneIsKnownAndHasPlacesOfItsOwn) {
  if (::geteuid() != 0) GTEST_SKIP() << "only the superuser can be somebody else";
  constexpr int kNobody = 65534;
  const TempFolder folder;
  std::filesystem::permissions(folder.path(), std::filesystem::perms{0755});
  const std::filesystem::path place = folder.path() / "run";
  const auto runtime = platform::MakeRealRuntime({});
  const Log log;
  Refusals refusals(log);
  std::mutex mutex;
  platform::LocalCaller last;  // guarded by mutex
  ChannelServer server(*runtime, log, refusals,
                       [&](const platform::LocalCaller& caller, std::string_view) {
                         const std::lock_guard lock(mutex);
                         last = caller;
                         return ToJson(ChannelAnswer());
                       },
                       {.connections_of_user = 2, .patience = std::chrono::minutes(5)});
  ASSERT_EQ(server.Start(place), "");
  const auto kind = [&] {
    const std::lock_guard lock(mutex);
    return last.kind;
  };
  bool reachable = false;  // for others: the temporary folder may lie where nobody else comes
  std::jthread nobody([&] {
    // The kernel's call, since the C library's changes every thread.
    ASSERT_EQ(::syscall(SYS_setresuid, -1, kNobody, -1), 0);
    reachable = ::faccessat(AT_FDCWD, place.c_str(), X_OK, AT_EACCESS) == 0;
    if (!reachable) return;
    std::optional<ChannelClient> first(std::in_place, *runtime, place);
    ChannelClient second(*runtime, place);
    ChannelClient third(*runtime, place);
    EXPECT_EQ(first->Ask({}).result, 0);
    EXPECT_EQ(second.Ask({}).result, 0);
    EXPECT_EQ(kind(), platform::CallerKind::kOther);
    EXPECT_EQ(third.Ask({}).reason, "refused: too many connections of this user");
    first.reset();
    const platform::SteadyTime latest = runtime->clock().Steady() + std::chrono::seconds(20);
    while (third.Ask({}).result != 0)
      ASSERT_LT(runtime->clock().Steady(), latest) << "its place comes back";
  });
  nobody.join();
  if (!reachable) GTEST_SKIP() << "no other account reaches " << place;
  for (int i = 0; i < 3; ++i) {
    ChannelClient own(*runtime, place);
    EXPECT_EQ(own.Ask({}).result, 0);
  }
  EXPECT_EQ(kind(), platform::CallerKind::kOwnAccount);
}

}  // namespace
}  // namespace TVK
