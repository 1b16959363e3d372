#include "framework/interval_report.h"

#include <gtest/gtest.h>

#include "platform/simulated/virtual_runtime.h"
#include "testing/log_capture.h"

namespace TVK {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only

TEST(IntervalReportTest, AReportThatIsHeldUpHoldsUpNoChangeOfTheInterval) {
  platform::VirtualRuntime runtime;
  const auto gate = runtime.MakeEvent(platform::EventReset::kManual);
  int begun = 0;
  IntervalReport report(runtime, L"report", [&] {
    if (++begun == 1) runtime.Wait(*gate, platform::kForever);
  });
  EXPECT_TRUE(report.SetInterval(60'000));
  report.Start(0);
  runtime.Settle();
  EXPECT_TRUE(report.SetInterval(120'000));
  EXPECT_FALSE(report.SetInterval(120'000));
  report.Start(30);
  runtime.AdvanceBy(30s + 120s);
  EXPECT_EQ(begun, 3);
  gate->Set();
  report.RequestStop();
  report.Start(0);
  runtime.Settle();
  report.Stop();
  EXPECT_TRUE(runtime.Threads().empty());
  runtime.AdvanceBy(10min);
  EXPECT_EQ(begun, 3) << "a stop is for good";
}

TEST(IntervalReportTest, AReportThatCouldNotBeStartedIsAskedForAgain) {
  const LogCapture logs;
  platform::VirtualRuntime runtime;
  int reports = 0;
  IntervalReport report(runtime, L"report", [&] { ++reports; });
  runtime.RefuseThreads(true);
  EXPECT_TRUE(report.SetInterval(60'000));
  report.Start(0);
  EXPECT_EQ(logs.Count(L"report: cannot be started: "), 1u);
  runtime.RefuseThreads(false);
  EXPECT_TRUE(report.SetInterval(60'000));
  report.Start(0);
  EXPECT_FALSE(report.SetInterval(60'000));
  runtime.AdvanceBy(1min);
  EXPECT_EQ(reports, 2);

  EXPECT_TRUE(report.SetInterval(0));
  report.Pause();
  runtime.AdvanceBy(10min);
  EXPECT_EQ(reports, 2);
  EXPECT_FALSE(report.SetInterval(0)) << "nothing is to be started";
  EXPECT_TRUE(report.SetInterval(60'000));
  report.Stop();
  EXPECT_FALSE(report.SetInterval(60'000)) << "nor after the stop";
}

}  // namespace

}  // namespace TVK
