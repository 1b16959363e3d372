#include <gtest/gtest.h>

#include "component/user_process.h"
#include "platform/local.h"
#include "platform/this_program.h"
#include "testing/child_process.h"
#include "testing/log_capture.h"
#include "testing/temp_folder.h"

namespace TVK {
namespace {

class UserProcessTest : public testing::Test {
 protected:
  UserProcessTest() {
    std::filesystem::copy_file(platform::ThisProgram().parent_path() / "user_agent_stand_in.exe",
                               folder_.path() / "TVKUserAgent.exe");
  }

  bool Left(const char* file) const { return std::filesystem::exists(folder_.path() / file); }

  TempFolder folder_;
  const std::unique_ptr<platform::Runtime> runtime_ = platform::MakeRealRuntime({});
  const std::unique_ptr<platform::Event> stop_ = runtime_->MakeEvent(platform::EventReset::kManual);
};

}  // namespace

TEST_F(UserProcessTest, StartsTheUserAgentAndEndsItThroughItsStopEvent) {
  UserProcess process(*runtime_, folder_.path(), {});
  process.SetDataSetEnable(true);
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    std::filesystem::remove(folder_.path() / "running");
    std::filesystem::remove(folder_.path() / "told");
    ASSERT_TRUE(process.StartUserProcess(*stop_));
    ASSERT_TRUE(WaitForState([&] { return Left("running"); }, std::chrono::seconds(20)));
    ASSERT_TRUE(process.StartUserProcess(*stop_)) << "asked again while it runs";
    process.StopUserProcess(1);
    EXPECT_TRUE(Left("told"));
  }
  EXPECT_EQ(runtime_->OpenNamedEvent(L"Global\\TvkUserAgentStopEvent").event, nullptr);
}

TEST_F(UserProcessTest, EachLogonStartsTheUserAgentThatEndedWithTheSessionBefore) {
  UserProcess process(*runtime_, folder_.path(), {});
  process.SetDataSetEnable(true);
  ASSERT_TRUE(process.StartUserProcess(*stop_));
  ASSERT_TRUE(WaitForState([&] { return Left("running"); }, std::chrono::seconds(20)));
  runtime_->OpenNamedEvent(L"Global\\TvkUserAgentStopEvent").event->Set();
  ASSERT_TRUE(WaitForState([&] { return !process.UserProcessRuns(); }, std::chrono::seconds(20)));
  process.OnUserLogon();
  ASSERT_TRUE(WaitForState([&] { return process.UserProcessRuns(); }, std::chrono::seconds(20)));
  process.StopUserProcess(1);
  process.OnUserLogon();
  EXPECT_FALSE(process.UserProcessRuns()) << "stopped for good";
}

TEST_F(UserProcessTest, NothingIsStartedOnceTheManagerStopsOrWithoutTheProgram) {
  UserProcess process(*runtime_, folder_.path(), {});
  process.SetDataSetEnable(true);
  stop_->Set();
  EXPECT_FALSE(process.StartUserProcess(*stop_));
  stop_->Reset();
  LogCapture logs;
  UserProcess without(*runtime_, folder_.path() / "missing", {});
  without.SetDataSetEnable(true);
  EXPECT_TRUE(without.StartUserProcess(*stop_)) << "it is tried again";
  EXPECT_TRUE(WaitForState([&] { return logs.Has(L"the user agent is not started: "); }, std::chrono::seconds(20)));
  EXPECT_FALSE(without.UserProcessRuns());
  without.StopUserProcess(1);
  EXPECT_FALSE(Left("running"));
}

}  // namespace TVK
