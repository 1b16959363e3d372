#include "client/text/moment.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/civil_time.h"
#include "platform/simulated/virtual_runtime.h"

namespace TVK {
namespace {

TEST(ParseMoment, TakesWhatPeopleWrite) {
  platform::VirtualRuntime world;
  const std::int64_t midnight = world.clock().NowSeconds();  // 2026-01-01T00:00:00, the zone is UTC
  world.AdvanceBy(std::chrono::hours(10));
  const std::int64_t now = world.clock().NowSeconds();
  constexpr std::int64_t kDay = 86400;
  const std::optional<std::int64_t> none;
  struct Row {
    std::string text;
    std::optional<std::int64_t> moment;
  };
  for (const Row& row : {
           Row{"now", now},
           {" today ", midnight},
           {"yesterday", midnight - kDay},
           {"tomorrow", midnight + kDay},
           {"yesterday 22:00", midnight - 7200},
           {"today +02:00", midnight - 7200},
           {"22:30", midnight + 22 * 3600 + 1800},
           {"00:00:07", midnight + 7},
           {"2025-12-31", midnight - kDay},
           {"2025-12-31 22:00", midnight - 7200},
           {"2025-12-31  22:00:01.250", midnight - 7199},
           {"2026-01-01T00:00:05", midnight + 5},
           {"2026-01-01T00:00:05Z", midnight + 5},
           {"2026-01-01 00:00:05 UTC", midnight + 5},
           {"2026-01-01T02:00:05+0200", midnight + 5},
           {"2026-01-01T02:00+02:00", midnight},
           {"2026-01-01 02:00 +02", midnight},
           {"2026-01-01+01:00", midnight - 3600},
           {"2025-12-31T19:30:05-0430", midnight + 5},
           {"2024-02-29", 1709164800},
           {"90s", now - 90},
           {"-2h", now - 7200},
           {"+5min", now + 300},
           {"3 days ago", now - 3 * kDay},
           {"1w", now - 7 * kDay},
           {"1M", now - 2629800},
           {"1m", now - 60},
           {"2y", now - 2 * 31557600},
           {"1h 30min", now - 5400},
           {"1h30m", now - 5400},
           {"999999999999999999999d", 0},
           {"999999999999w 999999999999w", 0},
           {"@1700000000", 1700000000},
           {"1960-05-05", 0},
           {"2026-01-01T00:00:05+0260", none},
           {"2026-01-01T00:00:05+0", none},
           {"2026-01-01T00:00:05+01:", none},
           {"2026-01-01T00:00:05Zulu", none},
           {"2026-02-29", none},
           {"2026-13-01", none},
           {"2026-01-00", none},
           {"2026-01-01T24:00", none},
           {"2026-01-01T23:60", none},
           {"2026-01-01T23:59:60", none},
           {"2026-01-01 9:05", none},
           {"2026-01-0109:05", none},
           {"2026-01-01T", none},
           {"today9:05", none},
           {"yesterdays", none},
           {"12:00:00.", none},
           {"2x", none},
           {"h", none},
           {"5", none},
           {"-1h ago", none},
           {"1h ago ago", none},
           {"ago", none},
           {"+", none},
           {"@", none},
           {"@-1", none},
           {"", none},
           {std::string(60, ' ') + "1h", now - 3600},
           {std::string(63, ' ') + "1h", none},
       }) {
    EXPECT_EQ(ParseMoment(row.text, world.clock()), row.moment) << '"' << row.text << '"';
  }
}

// A place an hour ahead of UTC, two hours in the summer of 2026, as central Europe has it.
class SummerClock final : public platform::Clock {
 public:
  static constexpr std::int64_t kSummer = 1774746000;  // 2026-03-29 02:00 becomes 03:00
  static constexpr std::int64_t kWinter = 1792890000;  // 2026-10-25 03:00 becomes 02:00

  explicit SummerClock(std::int64_t now) : now_(std::chrono::seconds(now)) {}
  platform::WallTime Now() const override { return platform::WallTime(now_); }
  platform::SteadyTime Steady() const override { return {}; }
  platform::ElapsedTime Elapsed() const override { return {}; }
  platform::LocalTime ToLocal(std::int64_t seconds) const override {
    return platform::ToCivil(seconds, seconds >= kSummer && seconds < kWinter ? 120 : 60);
  }
  std::int64_t FromLocal(const platform::LocalTime& local) const override {
    const std::int64_t summer = platform::FromCivil(local, 120);
    return summer >= kSummer && summer < kWinter ? summer : platform::FromCivil(local, 60);
  }

 private:
  const std::chrono::milliseconds now_;
};

TEST(ParseMoment, DaysAreThoseOfTheCalendar) {
  constexpr std::int64_t kHour = 3600;
  constexpr std::int64_t kSummerDay = SummerClock::kSummer - 2 * kHour;  // 00:00
  constexpr std::int64_t kWinterDay = SummerClock::kWinter - 3 * kHour;
  constexpr std::int64_t kMarch = 1772319600;  // 2026-03-01 00:00
  struct Row {
    std::int64_t now;
    const char* text;
    std::int64_t moment;
  };
  for (const Row& row : {
           Row{kSummerDay + 12 * kHour, "today", kSummerDay},
           {kSummerDay + 12 * kHour, "tomorrow", kSummerDay + 23 * kHour},
           {kSummerDay + 30 * kHour, "yesterday", kSummerDay},
           {kSummerDay + 30 * kHour, "yesterday 03:30", kSummerDay + 2 * kHour + 1800},
           {kSummerDay + 30 * kHour, "1d", kSummerDay + 6 * kHour},
           {kWinterDay + 12 * kHour, "tomorrow", kWinterDay + 25 * kHour},
           {kWinterDay + 30 * kHour, "yesterday", kWinterDay},
           {kWinterDay + 30 * kHour, "2026-10-25 02:30 +01:00", kWinterDay + 3 * kHour + 1800},
           {kWinterDay + 30 * kHour, "2026-10-25 02:30 +02:00", kWinterDay + 2 * kHour + 1800},
           {kMarch + kHour, "yesterday", kMarch - 24 * kHour},
           {kMarch + kHour, "yesterday 22:00Z", kMarch - kHour},
           {kMarch - kHour, "tomorrow", kMarch},
       }) {
    EXPECT_EQ(ParseMoment(row.text, SummerClock(row.now)), row.moment) << row.text << " of " << row.now;
  }
}

}  // namespace
}  // namespace TVK
