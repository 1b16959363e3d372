// When and where the user agent is started and ended, with a process that is played; the real one is tested on Windows.
#include "component/user_process.h"

#include <gtest/gtest.h>

#include "platform/simulated/virtual_runtime.h"
#include "testing/log_capture.h"

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
  std::optional<std::uint32_t> session;  ///< The user's; nothing: nobody is logged on.
  int tries = 0;
  int starts = 0;
  int kills = 0;
  bool ends_at_once = false;  ///< As a program whose libraries are missing.
  bool refuses = false;       ///< The system starts nothing.
  bool immortal = false;      ///< It is not ended by force.
  bool another_service = false;
  platform::Event* hangs = nullptr;          ///< The system takes until this is signalled to start one.
  std::shared_ptr<PlayedEnd> end = nullptr;  ///< Of the one that was started last.
};

class PlayedProcess final : public platform::SessionProcess {
 public:
  explicit PlayedProcess(Played& played) : played_(played), end_(played.end) {}
  platform::Waitable& end() override { return *end_->event; }
  bool HasEnded() override { return end_->ended; }
  void Kill(std::uint32_t /*exit_code*/) override {
    ++played_.kills;
    if (!played_.immortal) end_->Come();
  }

 private:
  Played& played_;
  const std::shared_ptr<PlayedEnd> end_;
};

class UserProcessRules : public testing::Test {
 protected:
  static constexpr std::uint32_t kSession = 3;
  static constexpr wchar_t kStopEvent[] = L"Global\\TvkUserAgentStopEvent";

  /// Where the users are is what the test says.
  class PlayedSessions final : public platform::UserSessions {
   public:
    explicit PlayedSessions(UserProcessRules& test) : test_(test) {}
    std::optional<std::uint32_t> Find(const std::set<std::uint32_t>& ended) override {
      const auto session = test_.played_.session;
      return session && ended.contains(*session) ? std::nullopt : session;
    }
    bool ServiceRunsElsewhere(std::wstring_view program) override {
      return program == kServiceProgram && test_.played_.another_service;
    }
    platform::SessionProcessStart Start(const platform::SessionProgram& /*program*/,
                                        const std::set<std::uint32_t>& ended) override {
      Played& played = test_.played_;
      ++played.tries;
      if (played.hangs != nullptr) test_.runtime_.Wait(*played.hangs, platform::kForever);
      const auto session = Find(ended);
      if (!session) return {nullptr, true, "nobody is logged on"};
      if (played.refuses) return {nullptr, false, "the program is missing"};
      ++played.starts;
      played.end = std::make_shared<PlayedEnd>();
      played.end->event = test_.runtime_.MakeEvent(platform::EventReset::kManual);
      if (played.ends_at_once) played.end->Come();
      return {std::make_unique<PlayedProcess>(played), false, {}, *session};
    }

   private:
    UserProcessRules& test_;
  };

  void SetUp() override {
    process_.SetDataSetEnable(true);
    EXPECT_TRUE(Ask());
  }
  bool Ask() {
    const bool taken = process_.StartUserProcess(*stop_);
    runtime_.Settle();
    return taken;
  }
  void Change(SessionChangeKind kind, std::uint32_t session = kSession) {
    process_.OnSessionChange({kind, session});
    runtime_.Settle();
  }
  void EndProcess() {
    played_.end->Come();
    runtime_.Settle();
  }
  /// Whether the process was told to end.
  bool Told() {
    const auto event = runtime_.OpenNamedEvent(kStopEvent).event;
    return event != nullptr && runtime_.Wait(*event, hours(0)) == 0;
  }

  LogCapture logs_;
  platform::VirtualRuntime runtime_;
  Played played_{.session = kSession};
  const std::unique_ptr<platform::Event> stop_ = runtime_.MakeEvent(platform::EventReset::kManual);
  UserProcess process_{runtime_, "", "", std::make_unique<PlayedSessions>(*this)};
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
  EXPECT_EQ(played_.starts, before + 1);
  Change(SessionChangeKind::kLogon);
  EXPECT_EQ(played_.starts, before + 2);
  process_.SetDataSetEnable(false);
  process_.StopUserProcess(1);
  runtime_.AdvanceBy(hours(24));
  EXPECT_EQ(played_.starts, before + 2);
}

TEST_F(UserProcessRules, OneThatOthersTellToEndIsStartedAgainWhenTheSessionDoesNotEndHoweverOftenTheyDo) {
  for (int round = 1; round <= 8; ++round) {
    runtime_.OpenNamedEvent(kStopEvent).event->Set();
    EndProcess();
    runtime_.AdvanceBy(UserProcess::kSessionEnd - std::chrono::milliseconds(1));
    EXPECT_EQ(played_.starts, round);
    runtime_.AdvanceBy(std::chrono::milliseconds(1));
    EXPECT_EQ(played_.starts, round + 1);
    EXPECT_FALSE(Told());
  }
}

TEST_F(UserProcessRules, ASystemThatHangsWhileItBeginsOneHoldsUpNobody) {
  const auto hang = runtime_.MakeEvent(platform::EventReset::kManual);
  EndProcess();
  played_.hangs = hang.get();
  runtime_.AdvanceBy(UserProcess::kFirstPause);
  EXPECT_EQ(played_.tries, 2);
  EXPECT_FALSE(process_.UserProcessRuns());
  Change(SessionChangeKind::kConsoleConnect);
  EXPECT_FALSE(process_.RunsIn(kSession));
  const auto begin = runtime_.clock().Steady();
  process_.StopUserProcess(1);
  EXPECT_EQ(runtime_.clock().Steady() - begin, UserProcess::kPatience);
  hang->Set();
  runtime_.Settle();
  EXPECT_TRUE(process_.RunsIn(kSession));
  EXPECT_TRUE(Told()) << "nobody wants it any more";
  runtime_.AdvanceBy(UserProcess::kPatience);
  EXPECT_EQ(played_.kills, 1);
  runtime_.AdvanceBy(hours(24));
  EXPECT_EQ(played_.starts, 2);

  // One that comes in time is ended before the stop returns.
  hang->Reset();
  EXPECT_TRUE(Ask());
  std::thread stopper = runtime_.StartThread("stop", [&] { process_.StopUserProcess(1); });
  runtime_.Settle();
  hang->Set();
  runtime_.Join(stopper);
  EXPECT_EQ(played_.kills, 2);
  EXPECT_EQ(played_.starts, 3);
  EXPECT_FALSE(process_.UserProcessRuns());
}

TEST_F(UserProcessRules, AStopInTheMiddleOfAMoveIsAStop) {
  played_.session = kSession + 1;
  Change(SessionChangeKind::kConsoleConnect, kSession + 1);
  EXPECT_TRUE(Told());
  EXPECT_TRUE(process_.RunsIn(kSession));
  process_.StopUserProcess(1);
  EXPECT_EQ(played_.kills, 1);
  runtime_.AdvanceBy(hours(1));
  EXPECT_EQ(played_.starts, 1);
  // And a switch while none can be started is followed by the next try.
  played_.refuses = true;
  EXPECT_TRUE(Ask());
  played_.session = kSession;
  Change(SessionChangeKind::kConsoleConnect);
  played_.refuses = false;
  runtime_.AdvanceBy(2 * UserProcess::kFirstPause);
  EXPECT_EQ(played_.starts, 2);
  EXPECT_TRUE(process_.RunsIn(kSession));
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
  played_.session = std::nullopt;
  EndProcess();
  runtime_.AdvanceBy(hours(1));
  played_.session = kSession;
  const std::uint64_t wake_ups = runtime_.WakeUps();
  runtime_.AdvanceBy(hours(24));
  EXPECT_EQ(runtime_.WakeUps(), wake_ups) << "it waits for a logon, not for a time";
  Change(SessionChangeKind::kLogon);
  EXPECT_EQ(played_.starts, before + 2);
}

TEST_F(UserProcessRules, ItMovesToTheSessionThatTheConsoleIsSwitchedTo) {
  constexpr std::uint32_t kOther = 4;
  Change(SessionChangeKind::kConsoleDisconnect);
  played_.session = std::nullopt;
  Change(SessionChangeKind::kConsoleConnect, kOther);
  runtime_.AdvanceBy(hours(1));
  EXPECT_FALSE(Told()) << "nobody is there yet";
  Change(SessionChangeKind::kLogon, kOther);
  EXPECT_FALSE(Told());
  played_.session = kOther;  // whose token is ready somewhat later
  runtime_.AdvanceBy(UserProcess::kFirstPause);
  EXPECT_TRUE(Told());
  EXPECT_EQ(played_.starts, 1) << "one after the other";
  EndProcess();
  EXPECT_EQ(played_.starts, 2);
  EXPECT_FALSE(Told());
  Change(SessionChangeKind::kConsoleConnect, kOther);
  EXPECT_FALSE(Told()) << "it is there already";

  played_.session = kSession;
  Change(SessionChangeKind::kConsoleConnect);
  EXPECT_TRUE(Told());
  runtime_.AdvanceBy(UserProcess::kPatience);
  EXPECT_EQ(played_.kills, 1) << "it did not follow";
  EXPECT_EQ(played_.starts, 3);

  // The user of the one logs off, and the other one is at the console again.
  Change(SessionChangeKind::kLogoff);
  played_.session = kOther;
  Change(SessionChangeKind::kConsoleConnect, kOther);
  EndProcess();
  EXPECT_EQ(played_.starts, 4);
}

TEST_F(UserProcessRules, WhenARemoteUserLeavesItGoesToAnotherWhoIsThereAndElseStays) {
  constexpr std::uint32_t kOther = 4;
  played_.session = std::nullopt;
  Change(SessionChangeKind::kRemoteDisconnect);
  runtime_.AdvanceBy(hours(1));
  EXPECT_FALSE(Told()) << "nobody else is there";
  played_.session = kSession;
  Change(SessionChangeKind::kRemoteConnect);
  EXPECT_EQ(played_.starts, 1);
  played_.session = kOther;
  Change(SessionChangeKind::kRemoteDisconnect);
  EXPECT_TRUE(Told());
  EndProcess();
  EXPECT_EQ(played_.starts, 2);
  EXPECT_TRUE(process_.RunsIn(kOther));
}

TEST_F(UserProcessRules, AStartThatFailedIsTriedAgainAndLoggedOnce) {
  EndProcess();
  played_.refuses = true;
  runtime_.AdvanceBy(hours(5));
  EXPECT_GE(played_.tries, 15);
  EXPECT_LE(played_.tries, 20) << "more and more rarely";
  EXPECT_EQ(logs_.Count(L"the program is missing"), 1u);
  EXPECT_TRUE(Ask()) << "it will be";
  played_.refuses = false;
  runtime_.AdvanceBy(UserProcess::kLongestPause);
  EXPECT_EQ(played_.starts, 2);

  // Who logs on may not be ready to be acted for.
  played_.session = std::nullopt;
  EndProcess();
  runtime_.AdvanceBy(hours(1));
  Change(SessionChangeKind::kLogon);
  played_.session = kSession;
  runtime_.AdvanceBy(UserProcess::kFirstPause);
  EXPECT_EQ(played_.starts, 3);
}

TEST_F(UserProcessRules, TheEndWaitsForASystemThatHangsNoLongerThanItsPatience) {
  process_.StopUserProcess(1);
  const auto hang = runtime_.MakeEvent(platform::EventReset::kManual);
  played_ = {.session = kSession, .hangs = hang.get()};
  platform::SteadyTime begin;
  {
    UserProcess process(runtime_, "", "", std::make_unique<PlayedSessions>(*this));
    process.SetDataSetEnable(true);
    EXPECT_TRUE(process.StartUserProcess(*stop_));
    runtime_.Settle();
    EXPECT_EQ(played_.tries, 1);
    begin = runtime_.clock().Steady();
  }
  EXPECT_EQ(runtime_.clock().Steady() - begin, 2 * UserProcess::kPatience) << "for the start, and for the thread";
  EXPECT_EQ(logs_.Count(L"the system does not answer"), 1u);
  EXPECT_EQ(played_.starts, 0);
  hang->Set();
  runtime_.Settle();
  EXPECT_EQ(played_.starts, 1);
  EXPECT_EQ(played_.kills, 1) << "nobody wants it any more";
}

TEST_F(UserProcessRules, NoneIsStartedBesideOneThatCannotBeKilled) {
  played_.immortal = true;
  process_.StopUserProcess(1);
  EXPECT_EQ(played_.kills, 1);
  EXPECT_TRUE(Ask());
  runtime_.AdvanceBy(UserProcess::kFirstPause);
  EXPECT_EQ(played_.starts, 1);
  EndProcess();
  EXPECT_EQ(played_.starts, 2) << "as soon as it has ended";
}

/// With one that a service left behind which was killed.
class UserProcessAfterAnother : public UserProcessRules {
 protected:
  void SetUp() override {}
  std::unique_ptr<platform::Event> held_ =
      runtime_.MakeNamedEvent(kStopEvent, platform::EventReset::kManual, false, platform::EventAccess::kServiceOnly)
          .event;
};

TEST_F(UserProcessAfterAnother, StartsOneWhenThatHasEndedAndBesideOneThatDoesNot) {
  for (const bool ends : {true, false}) {
    UserProcess process(runtime_, "", "", std::make_unique<PlayedSessions>(*this));
    process.SetDataSetEnable(true);
    played_.starts = 0;
    // Each of its datasets asks for it, and so does a session.
    const auto ask = [&] {
      for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(process.StartUserProcess(*stop_));
        runtime_.Settle();
      }
    };
    played_.another_service = true;
    ask();
    runtime_.AdvanceBy(hours(3));
    EXPECT_FALSE(Told()) << "it is of a service that runs";
    EXPECT_EQ(played_.starts, 0);
    played_.another_service = false;
    ask();
    EXPECT_TRUE(Told());
    process.StopUserProcess(1);
    runtime_.AdvanceBy(UserProcess::kFirstPause);
    EXPECT_EQ(played_.starts, 0) << "nobody wants one behind it";
    ask();
    EXPECT_EQ(played_.starts, 0);
    if (ends) held_ = nullptr;
    runtime_.AdvanceBy(UserProcess::kFirstPause);
    EXPECT_EQ(played_.starts, ends);
    runtime_.AdvanceBy(UserProcess::kFormerPatience);
    EXPECT_EQ(played_.starts, 1);
    EXPECT_FALSE(Told());
    // Whoever holds it from now on is none of a former service.
    held_ = runtime_.OpenNamedEvent(kStopEvent).event;
    EndProcess();
    runtime_.AdvanceBy(2 * UserProcess::kFirstPause);
    EXPECT_EQ(played_.starts, 2);
    EXPECT_FALSE(Told());
    process.StopUserProcess(1);
    held_ =
        runtime_.MakeNamedEvent(kStopEvent, platform::EventReset::kManual, false, platform::EventAccess::kServiceOnly)
            .event;
    held_->Reset();
  }
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
