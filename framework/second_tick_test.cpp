#include "framework/second_tick.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/simulated/virtual_runtime.h"
#include "testing/log_capture.h"

namespace TVK {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only

using Work = SecondTick::Work;

/// A thread that watches, and when its look was called. Read only while the world stands still.
class Watching {
 public:
  Watching(platform::VirtualRuntime& runtime, SecondTick& tick, const SecondTick::Look& look)
      : runtime_(runtime), stop_(runtime.MakeEvent(platform::EventReset::kManual)), look_([this, look] {
          looks_.push_back(
              std::chrono::duration_cast<std::chrono::seconds>(runtime_.clock().Steady().time_since_epoch()).count());
          return look();
        }) {
    thread_ = runtime.StartThread("watching", [this, &tick] { tick.Watch(name_, *stop_, look_); });
    runtime.Settle();
  }
  ~Watching() { Stop(); }
  Watching(const Watching&) = delete;
  Watching& operator=(const Watching&) = delete;

  void Stop() {
    stop_->Set();
    if (thread_.joinable()) runtime_.Join(thread_);
  }
  std::vector<std::int64_t> TakeLooks() { return std::exchange(looks_, {}); }

 private:
  platform::VirtualRuntime& runtime_;
  const std::unique_ptr<platform::Event> stop_;
  const std::string name_ = "watcher";
  const SecondTick::Look look_;  ///< Outlives the watching, so that a call that comes too late is seen.
  std::vector<std::int64_t> looks_;
  std::thread thread_;
};

using Looks = std::vector<std::int64_t>;

class SecondTickTest : public testing::Test {
 protected:
  LogCapture logs_;
  platform::VirtualRuntime runtime_;
  SecondTick tick_{runtime_};
};

TEST_F(SecondTickTest, AllWatchersShareOneThreadThatLivesNoLonger) {
  const auto nothing = [] { return Work(); };
  EXPECT_TRUE(runtime_.Threads().empty());
  {
    Watching first(runtime_, tick_, nothing);
    runtime_.AdvanceBy(1500ms);
    Watching second(runtime_, tick_, nothing);
    runtime_.AdvanceBy(2s);
    EXPECT_EQ(runtime_.Threads().size(), 3u) << "two watchers and the tick";
    EXPECT_EQ(first.TakeLooks(), (Looks{0, 1, 2, 3}));
    EXPECT_EQ(second.TakeLooks(), (Looks{2, 3}));
    first.Stop();
    runtime_.AdvanceBy(1s);
    EXPECT_EQ(second.TakeLooks(), (Looks{4}));
  }
  EXPECT_TRUE(runtime_.Threads().empty());
  Watching late(runtime_, tick_, nothing);
  EXPECT_EQ(late.TakeLooks(), (Looks{4})) << "the first watcher is looked for at once";
}

TEST_F(SecondTickTest, ASleepOfTheMachineBringsNoLookOfItsOwnAndNoBurst) {
  Watching watching(runtime_, tick_, [] { return Work(); });
  runtime_.AdvanceBy(1500ms);
  runtime_.Suspend(8h);
  EXPECT_EQ(watching.TakeLooks(), (Looks{0, 1}));
  runtime_.AdvanceBy(2s);
  EXPECT_EQ(watching.TakeLooks(), (Looks{2, 3})) << "of waking time";
}

TEST_F(SecondTickTest, WorkHoldsUpItsOwnWatcherOnly) {
  int done = 0;
  Watching busy(runtime_, tick_, [&] {
    return [&] {
      const auto never = runtime_.MakeEvent(platform::EventReset::kAuto);
      runtime_.Wait(*never, 2500ms);
      ++done;
    };
  });
  Watching other(runtime_, tick_, [] { return Work(); });
  runtime_.AdvanceBy(6s);
  EXPECT_EQ(busy.TakeLooks(), (Looks{0, 3, 6}));
  EXPECT_EQ(done, 2);
  EXPECT_EQ(other.TakeLooks(), (Looks{1, 2, 3, 4, 5, 6}));
  busy.Stop();
  EXPECT_EQ(done, 3) << "what was found is done";
}

TEST_F(SecondTickTest, ALookThatIsHeldUpKeepsNobodyFromLeavingOrComing) {
  const auto gate = runtime_.MakeEvent(platform::EventReset::kManual);
  int looks = 0;
  Watching held(runtime_, tick_, [&] {
    if (++looks == 2) runtime_.Wait(*gate, platform::kForever);
    return Work();
  });
  Watching other(runtime_, tick_, [] { return Work(); });
  runtime_.AdvanceBy(1s);
  other.Stop();
  Watching late(runtime_, tick_, [] { return Work(); });
  late.Stop();
  EXPECT_EQ(runtime_.Threads().size(), 2u) << "the one that is held up, and the tick";
  gate->Set();
  runtime_.Settle();
  EXPECT_EQ(other.TakeLooks(), Looks()) << "it left before its turn came";
  held.Stop();
  EXPECT_TRUE(runtime_.Threads().empty());
}

TEST_F(SecondTickTest, ExceptionsAreLoggedAndEndNothing) {
  int looks = 0;
  Watching watching(runtime_, tick_, [&]() -> Work {
    switch (++looks) {
      case 1:
        throw std::runtime_error("no look");
      case 2:
        return [] { throw std::runtime_error("no work"); };
      default:
        return nullptr;
    }
  });
  runtime_.AdvanceBy(2s);
  EXPECT_EQ(looks, 3);
  EXPECT_EQ(logs_.Count(L"watcher failed: no look"), 1u);
  EXPECT_EQ(logs_.Count(L"watcher failed: no work"), 1u);
}

}  // namespace

}  // namespace TVK
