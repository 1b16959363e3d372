#include "framework/timer_thread.h"

#include <gtest/gtest.h>

#include <vector>

#include "platform/simulated/virtual_runtime.h"
#include "testing/log_capture.h"

namespace TVK {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only
using std::chrono::seconds;
using Time = PeriodicThread::Time;
constexpr Time kElapsed = Time::kElapsed;

/// Collects when a timer called. Read only while the world stands still.
struct Calls {
  std::function<void()> Counting(std::function<void()> then = [] {}) {
    return [this, then = std::move(then)] {
      at.push_back(std::chrono::duration_cast<seconds>(runtime.clock().Elapsed().time_since_epoch()));
      then();
    };
  }
  void Spend(seconds time) {
    const auto never = runtime.MakeEvent(platform::EventReset::kAuto);
    runtime.Wait(*never, time);
  }

  platform::VirtualRuntime runtime;
  std::vector<seconds> at;
};

TEST(PeriodicThreadTest, CallsAreCountedFromStartToStart) {
  struct Row {
    const char* what;
    seconds period;
    seconds first_delay;
    seconds callback_takes;
    std::vector<seconds> calls;  // within 65 s
  };
  for (const Row& row : {
           Row{"a first delay", 20s, 3s, 0s, {3s, 23s, 43s, 63s}},
           Row{"a delay below zero", 30s, -5s, 0s, {0s, 30s, 60s}},
           Row{"a period below one second", 0s, 63s, 0s, {63s, 64s, 65s}},
           Row{"a callback within the period", 20s, 0s, 19s, {0s, 20s, 40s, 60s}},
           Row{"a callback that outlasts two periods", 10s, 0s, 25s, {0s, 30s, 60s}},
       }) {
    SCOPED_TRACE(row.what);
    Calls calls;
    PeriodicThread timer(calls.runtime, kElapsed, row.period, row.first_delay, "test", calls.Counting([&] {
      if (row.callback_takes > 0s) calls.Spend(row.callback_takes);
    }));
    calls.runtime.AdvanceBy(65s);
    EXPECT_EQ(calls.at, row.calls);
  }
}

TEST(PeriodicThreadTest, ASleepCountsOrNotAndWhatFellDueInItComesOnce) {
  struct Row {
    const char* what;
    Time time;
    std::vector<seconds> calls;  // 25 s awake, 34 s asleep, 20 s awake
  };
  for (const Row& row : {
           Row{"three times due in one sleep", kElapsed, {3s, 13s, 23s, 59s, 63s, 73s}},
           Row{"a sleep that is not counted", Time::kWaking, {3s, 13s, 23s, 67s, 77s}},
       }) {
    SCOPED_TRACE(row.what);
    Calls calls;
    PeriodicThread timer(calls.runtime, row.time, 10s, 3s, "test", calls.Counting());
    calls.runtime.AdvanceBy(25s);
    calls.runtime.Suspend(34s);
    calls.runtime.AdvanceBy(20s);
    EXPECT_EQ(calls.at, row.calls);
  }
}

TEST(PeriodicThreadTest, StopWaitsForTheCallbackAndLetsNoOtherCome) {
  Calls calls;
  bool ended = false;
  PeriodicThread timer(calls.runtime, kElapsed, 10s, 0s, "test", calls.Counting([&] {
    calls.Spend(4s);
    ended = true;
  }));
  calls.runtime.AdvanceBy(1s);
  EXPECT_FALSE(ended);
  EXPECT_FALSE(timer.ended());
  timer.Stop();
  EXPECT_TRUE(ended);
  EXPECT_TRUE(timer.ended());
  EXPECT_TRUE(calls.runtime.Threads().empty());
  timer.Stop();
  calls.runtime.AdvanceBy(60s);
  EXPECT_EQ(calls.at.size(), 1u);
}

TEST(PeriodicThreadTest, MayBeStoppedFromItsFirstCallback) {
  Calls calls;
  std::unique_ptr<PeriodicThread> timer;
  const auto made = calls.runtime.MakeEvent(platform::EventReset::kManual);
  timer = std::make_unique<PeriodicThread>(calls.runtime, kElapsed, 1s, 0s, "test", calls.Counting([&] {
    calls.runtime.Wait(*made, platform::kForever);
    timer->Stop();
  }));
  made->Set();
  calls.runtime.AdvanceBy(60s);
  EXPECT_EQ(calls.at.size(), 1u);
  EXPECT_TRUE(calls.runtime.Threads().empty());
}

TEST(PeriodicThreadTest, AFailingCallbackIsLoggedAndCalledAgain) {
  const LogCapture logs;
  Calls calls;
  PeriodicThread timer(calls.runtime, kElapsed, 10s, 0s, "test", calls.Counting([&] {
    if (calls.at.size() == 1) throw std::runtime_error("no luck");
    if (calls.at.size() == 2) throw 7;
  }));
  calls.runtime.AdvanceBy(25s);
  EXPECT_EQ(calls.at.size(), 3u);
  EXPECT_EQ(logs.Count(L"test failed: no luck"), 1u);
  EXPECT_EQ(logs.Count(L"test failed: "), 2u);
}

TEST(TimerThreadTest, HandsItsNameOverAndBearsAnyDelay) {
  Calls calls;
  std::wstring heard;
  TimerThread<std::wstring> timer(
      calls.runtime, UINT64_MAX, L"usage", [&](const std::wstring& name) { heard = name; }, 2);
  TimerThread<std::wstring> late(
      calls.runtime, 1, L"late", [&](const std::wstring& name) { heard = name; }, UINT64_MAX);
  calls.runtime.AdvanceBy(1h);
  EXPECT_EQ(heard, L"usage");
}

}  // namespace

}  // namespace TVK
