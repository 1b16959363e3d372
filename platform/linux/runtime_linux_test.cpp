#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <chrono>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

#include "platform/local.h"
#include "testing/child_process.h"

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

/// When the first timer by the clock that counts sleep that the process holds goes off, from now on.
std::optional<std::chrono::seconds> TimeToAlarm() {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fdinfo")) {
    std::ifstream file(entry.path());
    const std::string text(std::istreambuf_iterator<char>(file), {});
    const auto value = text.find("it_value: (");
    if (value == std::string::npos || text.find("clockid: " + std::to_string(CLOCK_BOOTTIME)) == std::string::npos) {
      continue;
    }
    return std::chrono::seconds(std::stoll(text.substr(value + std::strlen("it_value: ("))));
  }
  return std::nullopt;
}

TEST(LinuxRuntimeTest, AWaitUntilAMomentOfElapsedTimeHasAnAlarmThatCountsSleep) {
  const auto runtime = MakeRealRuntime({});
  const auto event = runtime->MakeEvent(EventReset::kManual);
  std::thread thread = runtime->StartThread(
      "alarm", [&] { runtime->WaitUntil(*event, runtime->clock().Elapsed() + std::chrono::hours(24)); });
  std::optional<std::chrono::seconds> left;
  EXPECT_TRUE(WaitForState([&] { return (left = TimeToAlarm()).has_value() && *left > left->zero(); },
                           std::chrono::seconds(20)));
  EXPECT_GT(left.value_or(std::chrono::seconds(0)), std::chrono::hours(23));
  EXPECT_LE(left.value_or(std::chrono::hours(99)), std::chrono::hours(24));
  event->Set();
  runtime->Join(thread);
  EXPECT_EQ(TimeToAlarm(), std::nullopt);
}

TEST(LinuxRuntimeTest, WithoutADescriptorForTheAlarmAWaitUntilAMomentOfElapsedTimeEndsAllTheSame) {
  const auto runtime = MakeRealRuntime({});
  const auto event = runtime->MakeEvent(EventReset::kManual);
  // The undefined-behaviour sanitiser looks a class up at its first virtual call, through a pipe: that needs
  // descriptors.
  ASSERT_EQ(runtime->WaitUntil(*event, runtime->clock().Elapsed()), kWaitTimeout);
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
