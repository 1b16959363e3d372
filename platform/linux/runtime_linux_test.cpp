#include <gtest/gtest.h>
#include <sys/prctl.h>

#include "platform/local.h"

namespace platform {
namespace {

TEST(LinuxRuntimeTest, OnlyLongWaitsMayEndLateAndStartedThreadsDoNotInheritIt) {
  const auto runtime = MakeRealRuntime({});
  const auto event = runtime->MakeEvent(EventReset::kManual, true);
  ASSERT_EQ(runtime->Wait(*event, std::chrono::seconds(1)), 0U);
  EXPECT_EQ(::prctl(PR_GET_TIMERSLACK), 50'000'000);

  int of_started_thread = 0;
  std::thread thread = runtime->StartThread("slack", [&] { of_started_thread = ::prctl(PR_GET_TIMERSLACK); });
  runtime->Join(thread);
  EXPECT_EQ(of_started_thread, 50'000);

  ASSERT_EQ(runtime->Wait(*event, std::chrono::milliseconds(50)), 0U);
  EXPECT_EQ(::prctl(PR_GET_TIMERSLACK), 50'000);
}

}  // namespace
}  // namespace platform
