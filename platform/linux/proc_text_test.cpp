#include "platform/linux/proc_text.h"

#include <gtest/gtest.h>

namespace platform {
namespace {

TEST(ProcText, DecodesTheTimesOfAllProcessors) {
  const auto times = DecodeProcessorTimes("cpu  100 20 30 1000 50 5 6 7 40 10\ncpu0 1 2 3 4\n");
  ASSERT_TRUE(times);
  EXPECT_EQ(times->busy, 168u) << "guest time is in user already";
  EXPECT_EQ(times->idle, 1050u);
  const auto old_kernel = DecodeProcessorTimes("cpu 1 2 3 4");
  ASSERT_TRUE(old_kernel);
  EXPECT_EQ(old_kernel->idle, 4u);
  for (const char* const text : {"", "cpu", "cpu 1 2 3", "cpu0 1 2 3 4 5", "cpu 1 2 -3 4", "cpu 1 2 3 4 x",
                                 "cpu 1 2 3 18446744073709551615", "intr 5 1 2 3 4"}) {
    EXPECT_FALSE(DecodeProcessorTimes(text)) << text;
  }
}

TEST(ProcText, BusyShareIsRoundedAndNeverGarbage) {
  const ProcessorTimes before{1000, 5000};
  struct Case {
    ProcessorTimes after;
    std::optional<std::int32_t> percent;
  };
  for (const Case& c : {Case{{1000, 5000}, {}}, Case{{1001, 5199}, 1}, Case{{1001, 5299}, 0}, Case{{1100, 5000}, 100},
                        Case{{1050, 5050}, 50}, Case{{999, 6000}, {}}, Case{{2000, 4999}, {}}}) {
    EXPECT_EQ(BusyPercent(before, c.after), c.percent) << c.after.busy << " " << c.after.idle;
  }
}

TEST(ProcText, FindsTheBootTime) {
  EXPECT_EQ(DecodeBootTime("cpu 1 2 3 4\nintr 1 btime 5\nbtime 1767222000\n"), 1767222000);
  EXPECT_FALSE(DecodeBootTime("cpu 1 2 3 4\n"));
  EXPECT_FALSE(DecodeBootTime("btime soon\n"));
}

TEST(ProcText, DecodesMeminfo) {
  const auto status = DecodeMeminfo("MemTotal:  8000000 kB\nMemFree: 100 kB\nMemAvailable:    2000000 kB\n");
  ASSERT_TRUE(status);
  EXPECT_EQ(status->load_percent, 75u);
  EXPECT_EQ(status->total_bytes, 8000000ull * 1024);
  EXPECT_EQ(status->available_bytes, 2000000ull * 1024);

  EXPECT_EQ(DecodeMeminfo("MemTotal: 100 kB\nMemFree: 10 kB\nBuffers: 20 kB\nCached: 30 kB\n")->load_percent, 40u);
  EXPECT_EQ(DecodeMeminfo("MemTotal: 100 kB\nMemAvailable: 500 kB\n")->load_percent, 0u);
  for (const char* const text : {"", "MemTotal: 0 kB\n", "MemTotal: lots\n", "MemAvailable: 5 kB\n"}) {
    EXPECT_FALSE(DecodeMeminfo(text)) << text;
  }
}

}  // namespace
}  // namespace platform
