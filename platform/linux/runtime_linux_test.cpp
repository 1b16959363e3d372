#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>

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
  ASSERT_EQ(runtime->WaitUntil(*event, runtime->clock().Elapsed() + std::chrono::seconds(1)), 0U);
  EXPECT_EQ(::prctl(PR_GET_TIMERSLACK), 50'000'000) << "the alarm costs no exact wake-up";
}

TEST(LinuxRuntimeTest, WithoutADescriptorForTheAlarmAWaitUntilAMomentOfElapsedTimeEndsAllTheSame) {
  const auto runtime = MakeRealRuntime({});
  const auto event = runtime->MakeEvent(EventReset::kManual);
  rlimit usual{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &usual), 0);
  const rlimit none_left{.rlim_cur = 3, .rlim_max = usual.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none_left), 0);
  const auto due = runtime->clock().Elapsed() + std::chrono::milliseconds(5);
  const WaitCode code = runtime->WaitUntil(*event, due);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &usual), 0);
  EXPECT_EQ(code, kWaitTimeout);
  EXPECT_GE(runtime->clock().Elapsed(), due);
}

}  // namespace
}  // namespace platform
