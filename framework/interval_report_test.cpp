#include "framework/interval_report.h"

#include <gtest/gtest.h>

#include "platform/simulated/virtual_runtime.h"

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

}  // namespace
