#include "framework/one_shot_timer.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "platform/simulated/virtual_runtime.h"
#include "testing/log_capture.h"

namespace TVK {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only
using std::chrono::seconds;

class OneShotTimerTest : public testing::Test {
 protected:
  /// Notes when the timer called, then runs `callback_`.
  std::unique_ptr<OneShotTimer> MakeTimer() {
    return std::make_unique<OneShotTimer>(runtime_, "test", [this] {
      calls_.push_back(std::chrono::floor<seconds>(runtime_.clock().Steady().time_since_epoch()));
      if (callback_) callback_();
    });
  }
  void Spend(seconds time) { runtime_.Wait(*never_, time); }

  const LogCapture logs_;
  platform::VirtualRuntime runtime_;
  const std::unique_ptr<platform::Event> never_ = runtime_.MakeEvent(platform::EventReset::kManual);
  std::vector<seconds> calls_;
  std::function<void()> callback_;
  std::unique_ptr<OneShotTimer> timer_ = MakeTimer();
};

using Times = std::vector<seconds>;

TEST_F(OneShotTimerTest, CallsOnceAfterTheLastArmingInWakingTimeAndNeedsNoThreadAtRest) {
  EXPECT_TRUE(runtime_.Threads().empty());
  timer_->Arm(40s);
  runtime_.AdvanceBy(30s);
  timer_->Arm(40s);
  runtime_.Suspend(8h);
  runtime_.AdvanceBy(39s);
  EXPECT_EQ(calls_, Times());
  EXPECT_EQ(runtime_.Threads().size(), 1u);
  runtime_.AdvanceBy(1s);
  EXPECT_EQ(calls_, Times{70s});
  EXPECT_TRUE(runtime_.Threads().empty());
  runtime_.AdvanceBy(1h);
  timer_->Arm(1h);
  timer_->Arm(-5s);
  runtime_.AdvanceBy(2h);
  EXPECT_EQ(calls_, (Times{70s, 3670s})) << "an arming may come nearer too";
}

TEST_F(OneShotTimerTest, ACallbackThatBlocksHoldsUpNoOtherTimerAndAnArmingMeanwhileComesAfterIt) {
  callback_ = [&] {
    if (calls_.size() == 1) {
      Spend(5s);
      timer_->Arm(2s);
      Spend(5s);
    } else if (calls_.size() == 3) {
      throw std::runtime_error("no battery");
    }
  };
  const auto other = MakeTimer();
  timer_->Arm(1s);
  other->Arm(3s);
  runtime_.AdvanceBy(20s);
  EXPECT_EQ(calls_, (Times{1s, 3s, 11s}));
  EXPECT_EQ(logs_.Count(L"test failed: no battery"), 1u);
  timer_->Arm(0s);
  runtime_.AdvanceBy(0s);
  EXPECT_EQ(calls_, (Times{1s, 3s, 11s, 20s})) << "after an exception too";
}

TEST_F(OneShotTimerTest, DestructionWaitsForTheCallbackAndTakesEveryArmingBack) {
  OneShotTimer* const timer = timer_.get();  // The owner's pointer is empty while it is destroyed.
  bool ended = false;
  callback_ = [&, timer] {
    Spend(5s);
    timer->Arm(0s);
    ended = true;
  };
  timer->Arm(0s);
  runtime_.AdvanceBy(1s);
  timer->Arm(1s);
  timer_.reset();
  EXPECT_TRUE(ended);
  EXPECT_TRUE(runtime_.Threads().empty());
  EXPECT_EQ(calls_, Times{0s});

  timer_ = MakeTimer();
  timer_->Arm(1h);
  runtime_.Settle();
  const platform::SteadyTime before = runtime_.clock().Steady();
  timer_.reset();
  EXPECT_EQ(runtime_.clock().Steady(), before) << "it waits for no arming";
}

TEST_F(OneShotTimerTest, WithoutAThreadItWaitsForOne) {
  EXPECT_TRUE(timer_->Retry()) << "nothing is armed";
  runtime_.RefuseThreads(true);
  EXPECT_FALSE(timer_->Arm(1s));
  EXPECT_FALSE(timer_->Retry());
  EXPECT_EQ(logs_.Count(L"test: cannot be armed: "), 2u);
  runtime_.RefuseThreads(false);
  runtime_.AdvanceBy(2s);
  EXPECT_EQ(calls_, Times());
  EXPECT_TRUE(timer_->Retry());
  runtime_.AdvanceBy(1s);
  EXPECT_EQ(calls_, Times{2s}) << "it was due before";
  EXPECT_TRUE(timer_->Retry());
  runtime_.AdvanceBy(1s);
  EXPECT_EQ(calls_, Times{2s}) << "once";
}

}  // namespace

}  // namespace TVK
