// When the user agent is started and ended, with a process that is played; the real one is tested on Windows.
#include "component/user_process.h"

#include <gtest/gtest.h>

#include "platform/simulated/virtual_runtime.h"

namespace TVK {
namespace {

using platform::SessionChangeKind;
using std::chrono::hours;

struct PlayedEnd {
  std::unique_ptr<platform::Event> event;
  std::atomic<bool> ended = false;

  void Come() {
    ended = true;
    event->Set();
  }
};

/// What became of the played processes.
struct Played {
  int starts = 0;
  int kills = 0;
  bool ends_at_once = false;  ///< As a program whose libraries are missing.
  bool nobody_logged_on = false;
  std::shared_ptr<PlayedEnd> end;  ///< Of the one that was started last.
};

class PlayedProcess final : public platform::SessionProcess {
 public:
  explicit PlayedProcess(Played& played) : played_(played), end_(played.end) {}
  platform::Waitable& end() override { return *end_->event; }
  bool HasEnded() override { return end_->ended; }
  void Kill(std::uint32_t /*exit_code*/) override {
    ++played_.kills;
    end_->Come();
  }

 private:
  Played& played_;
  const std::shared_ptr<PlayedEnd> end_;
};

class UserProcessRules : public testing::Test {
 protected:
  static constexpr std::uint32_t kSession = 3;

  UserProcessRules() {
    process_.SetDataSetEnable(true);
    EXPECT_TRUE(Ask());
  }
  bool Ask() { return process_.StartUserProcess(*stop_, true); }
  void Change(SessionChangeKind kind, std::uint32_t session = kSession) { process_.OnSessionChange({kind, session}); }
  void EndProcess() {
    played_.end->Come();
    runtime_.Settle();
  }
  platform::SessionProcessStart Start() {
    if (played_.nobody_logged_on) return {nullptr, true, "nobody is logged on"};
    ++played_.starts;
    played_.end = std::make_shared<PlayedEnd>();
    played_.end->event = runtime_.MakeEvent(platform::EventReset::kManual);
    if (played_.ends_at_once) played_.end->Come();
    return {std::make_unique<PlayedProcess>(played_), false, {}, kSession};
  }

  platform::VirtualRuntime runtime_;
  Played played_;
  const std::unique_ptr<platform::Event> stop_ = runtime_.MakeEvent(platform::EventReset::kManual);
  UserProcess process_{runtime_, "", "", [this](const platform::SessionProgram&) { return Start(); }};
};

TEST_F(UserProcessRules, OneThatIsKilledIsStartedAgainSoonAndOneThatEndsAtOnceMoreAndMoreRarely) {
  runtime_.AdvanceBy(hours(1));
  for (int round = 1; round <= 3; ++round) {
    EndProcess();
    runtime_.AdvanceBy(UserProcess::kFirstPause - std::chrono::milliseconds(1));
    EXPECT_EQ(played_.starts, round);
    runtime_.AdvanceBy(std::chrono::milliseconds(1) + UserProcess::kSoundLife);
    EXPECT_EQ(played_.starts, round + 1);
  }
  played_.ends_at_once = true;
  EndProcess();
  runtime_.AdvanceBy(hours(24));
  EXPECT_GE(played_.starts, 24);
  EXPECT_LE(played_.starts, 40);
  const int before = played_.starts;
  EXPECT_TRUE(Ask());
  Change(SessionChangeKind::kLogon);
  EXPECT_EQ(played_.starts, before + 2);
  process_.SetDataSetEnable(false);
  process_.StopUserProcess(1);
  runtime_.AdvanceBy(hours(24));
  EXPECT_EQ(played_.starts, before + 2);
}

TEST_F(UserProcessRules, OneThatEndedInOrderIsStartedAgainWhenTheSessionDoesNotEnd) {
  runtime_.AdvanceBy(hours(1));
  runtime_.OpenNamedEvent(L"Global\\TvkUserAgentStopEvent").event->Set();
  EndProcess();
  runtime_.AdvanceBy(UserProcess::kSessionEnd - std::chrono::milliseconds(1));
  EXPECT_EQ(played_.starts, 1);
  runtime_.AdvanceBy(std::chrono::milliseconds(1));
  EXPECT_EQ(played_.starts, 2);
  EXPECT_NE(runtime_.Wait(*runtime_.OpenNamedEvent(L"Global\\TvkUserAgentStopEvent").event, hours(0)), 0u);
}

TEST_F(UserProcessRules, ALogoffStartsNothingWhetherItIsToldBeforeTheProcessEndsOrBehind) {
  for (const bool told_before : {true, false}) {
    const int before = played_.starts;
    if (!told_before) EndProcess();
    Change(SessionChangeKind::kLogoff);
    if (told_before) EndProcess();
    Change(SessionChangeKind::kConsoleDisconnect);
    Change(SessionChangeKind::kConsoleConnect);
    runtime_.AdvanceBy(hours(1));
    EXPECT_EQ(played_.starts, before);
    Change(SessionChangeKind::kLogon);
    EXPECT_EQ(played_.starts, before + 1);
  }
  Change(SessionChangeKind::kLogoff, kSession + 1);
  const int before = played_.starts;
  EndProcess();
  runtime_.AdvanceBy(hours(1));
  EXPECT_EQ(played_.starts, before + 1) << "another user's logoff";
  played_.nobody_logged_on = true;
  EndProcess();
  runtime_.AdvanceBy(hours(1));
  played_.nobody_logged_on = false;
  const std::uint64_t wake_ups = runtime_.WakeUps();
  runtime_.AdvanceBy(hours(24));
  EXPECT_EQ(runtime_.WakeUps(), wake_ups) << "it waits for a logon, not for a time";
  Change(SessionChangeKind::kLogon);
  EXPECT_EQ(played_.starts, before + 2);
}

TEST_F(UserProcessRules, OneThatIsFrozenForHoursIsLeftAloneUntilTheServiceStops) {
  runtime_.AdvanceBy(hours(9));
  Change(SessionChangeKind::kConsoleConnect);
  Change(SessionChangeKind::kLogon);
  EXPECT_TRUE(Ask());
  EXPECT_EQ(played_.starts, 1);
  EXPECT_EQ(played_.kills, 0);
  process_.StopUserProcess(1);
  EXPECT_EQ(played_.kills, 1) << "it follows no event";
}

TEST(UserProcessElsewhere, ASystemWithoutAUserAgentHasNone) {
  platform::VirtualRuntime runtime;
  EXPECT_FALSE(UserProcess(runtime, "", "", nullptr).Exists());
}

}  // namespace
}  // namespace TVK
