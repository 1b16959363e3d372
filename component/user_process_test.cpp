// When the user agent is started and ended, with a process that is played; the real one is tested on Windows.
#include "component/user_process.h"

#include <gtest/gtest.h>

#include "platform/simulated/virtual_runtime.h"

namespace TVK {
namespace {

using platform::SessionChangeKind;
using std::chrono::hours;

/// What became of the played processes.
struct Played {
  int starts = 0;
  int kills = 0;
  bool ends_at_once = false;  ///< As a program whose libraries are missing.
  bool ended = false;         ///< The one that was started last.
};

class PlayedProcess final : public platform::SessionProcess {
 public:
  explicit PlayedProcess(Played& played) : played_(played) {}
  bool WaitForEnd(platform::milliseconds /*timeout*/) override { return played_.ended; }
  void Kill(std::uint32_t /*exit_code*/) override {
    ++played_.kills;
    played_.ended = true;
  }

 private:
  Played& played_;
};

class UserProcessRules : public testing::Test {
 protected:
  UserProcessRules() {
    process_.SetDataSetEnable(true);
    EXPECT_TRUE(Ask());
  }
  bool Ask() { return process_.StartUserProcess(*stop_, true); }
  void Change(SessionChangeKind kind) { process_.OnSessionChange({kind, 1}); }

  Played played_;
  platform::VirtualRuntime runtime_;
  const std::unique_ptr<platform::Event> stop_ = runtime_.MakeEvent(platform::EventReset::kManual);
  UserProcess process_{runtime_, "", [this](const std::filesystem::path&, const std::vector<std::wstring>&) {
                         ++played_.starts;
                         played_.ended = played_.ends_at_once;
                         return platform::SessionProcessStart{std::make_unique<PlayedProcess>(played_), false, {}};
                       }};
};

TEST_F(UserProcessRules, OneThatEndsAtOnceIsStartedAgainWhenAskedOrAtALogonAndNotInALoop) {
  played_.ended = played_.ends_at_once = true;
  runtime_.AdvanceBy(hours(24));
  EXPECT_EQ(played_.starts, 1);
  EXPECT_TRUE(Ask());
  Change(SessionChangeKind::kLogon);
  runtime_.AdvanceBy(hours(24));
  EXPECT_EQ(played_.starts, 3);
}

TEST_F(UserProcessRules, ALogoffStartsNothingWhetherItIsToldBeforeTheProcessEndsOrBehind) {
  Change(SessionChangeKind::kLogoff);
  played_.ended = true;
  Change(SessionChangeKind::kConsoleDisconnect);
  Change(SessionChangeKind::kConsoleConnect);
  EXPECT_EQ(played_.starts, 1);
  Change(SessionChangeKind::kLogon);
  EXPECT_EQ(played_.starts, 2);
  played_.ended = true;
  Change(SessionChangeKind::kLogoff);
  Change(SessionChangeKind::kConsoleConnect);
  EXPECT_EQ(played_.starts, 2);
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

}  // namespace
}  // namespace TVK
