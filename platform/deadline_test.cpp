#include "platform/deadline.h"

#include <gtest/gtest.h>

#include <vector>

namespace platform {
namespace {

using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::nanoseconds;

TEST(DeadlineTest, NeitherALongDelayNorANegativeOneLeavesTheClock) {
  const SteadyTime now(hours(1));
  EXPECT_EQ(DeadlineAfter(now, milliseconds(5)), now + milliseconds(5));
  EXPECT_EQ(DeadlineAfter(now, milliseconds(-5)), now);
  EXPECT_EQ(DeadlineAfter(now, milliseconds::max()), SteadyTime::max());
}

/// What one turn of a wait brings on a machine whose clocks a test moves.
struct Turn {
  nanoseconds asked;   ///< How long the turn is to wait at most.
  nanoseconds passes;  ///< By the clock of the deadline, sleep included.
  WaitCode found = kWaitTimeout;
};

TEST(DeadlineTest, AWaitInTurnsEndsByItsClockWhateverEndsTheTurns) {
  struct Row {
    const char* what;
    std::vector<Turn> turns;
    WaitCode result;
  };
  for (const Row& row : {
           Row{"the timeout", {{hours(1), hours(1)}, {hours(0), hours(0)}}, kWaitTimeout},
           Row{"asleep for 8 h: the alarm goes off at the resume",
               {{hours(1), hours(8)}, {hours(0), {}}},
               kWaitTimeout},
           Row{"a wall clock set forward: the alarm is early",
               {{hours(1), minutes(20)}, {minutes(40), minutes(40)}, {hours(0), {}}},
               kWaitTimeout},
           Row{"a tick too early",
               {{hours(1), hours(1) - nanoseconds(1)}, {nanoseconds(1), milliseconds(15)}, {hours(0), {}}},
               kWaitTimeout},
           Row{"a signal", {{hours(1), minutes(5), 3}}, 3},
           Row{"a signal in the sleep", {{hours(1), hours(8), 2}}, 2},
           Row{"a signal with the deadline is seen", {{hours(1), hours(1)}, {hours(0), {}, 1}}, 1},
           Row{"a wait that fails", {{hours(1), {}, kWaitFailed}}, kWaitFailed},
       }) {
    SCOPED_TRACE(row.what);
    ElapsedTime now(hours(100));
    std::size_t count = 0;
    const WaitCode result = WaitInTurns(
        now + hours(1), [&] { return now; },
        [&](nanoseconds left) -> WaitCode {
          if (count == row.turns.size()) return 77;
          EXPECT_EQ(left, row.turns[count].asked);
          now += row.turns[count].passes;
          return row.turns[count++].found;
        });
    EXPECT_EQ(result, row.result);
    EXPECT_EQ(count, row.turns.size());
  }
}

}  // namespace
}  // namespace platform
