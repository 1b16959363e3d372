#include "platform/windows/runtime_windows.h"

#include <gtest/gtest.h>

namespace platform::windows {
namespace {

using std::chrono::hours;

TEST(WindowsRuntimeTest, TheAlarmGoesByTheWallClock) {
  EXPECT_EQ(ToFileTime(WallTime()).count(), 116'444'736'000'000'000);
  const WallTime now = WindowsClock().Now();
  // As on a machine that resumes: the moment has passed, however short the wait was so far.
  const UniqueKernelHandle passed = MakeAlarm(now - hours(8), hours(1));
  ASSERT_TRUE(passed);
  EXPECT_EQ(WaitForSingleObject(passed.get(), 20'000), WAIT_OBJECT_0);
  const UniqueKernelHandle later = MakeAlarm(now, hours(1));
  ASSERT_TRUE(later);
  EXPECT_EQ(WaitForSingleObject(later.get(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
}

}  // namespace
}  // namespace platform::windows
