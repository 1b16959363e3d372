// What only the virtual runtime promises: when its clocks move.
#include "platform/simulated/virtual_runtime.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace platform {
namespace {

using std::chrono::hours;

TEST(VirtualRuntime, ASuspendEndsTheWaitsOnElapsedTimeThatFellDueAndNoOthers) {
  VirtualRuntime world;
  const auto never = world.MakeEvent(EventReset::kManual);
  std::vector<std::string> ended;
  std::vector<std::thread> threads;
  const auto start = [&](const char* name, auto limit) {
    threads.push_back(world.StartThread(name, [&, name, limit] {
      if constexpr (std::is_same_v<decltype(limit), ElapsedTime>) {
        world.WaitUntil(*never, limit);
      } else {
        world.Wait(*never, limit);
      }
      ended.push_back(name);
    }));
  };
  start("waking", hours(3));
  start("third", ElapsedTime(hours(12)));
  start("second", ElapsedTime(hours(4)));
  start("first", ElapsedTime(hours(3)));
  const auto expect = [&](std::vector<std::string> names, hours waking, hours elapsed) {
    EXPECT_EQ(std::exchange(ended, {}), names);
    EXPECT_EQ(world.clock().Steady(), SteadyTime(waking));
    EXPECT_EQ(world.clock().Elapsed(), ElapsedTime(elapsed));
    EXPECT_EQ(world.clock().Now() - VirtualRuntimeOptions().start, elapsed);
  };
  world.AdvanceBy(hours(1));
  expect({}, hours(1), hours(1));
  world.Suspend(hours(8));
  expect({"first", "second"}, hours(1), hours(9));
  world.Suspend(hours(-1));
  world.AdvanceBy(hours(2));
  expect({"waking"}, hours(3), hours(11));
  world.AdvanceBy(hours(1));
  expect({"third"}, hours(4), hours(12));
  for (std::thread& thread : threads)
    world.Join(thread);

  std::thread outside([&] { EXPECT_EQ(world.WaitUntil(*never, ElapsedTime(hours(20))), kWaitTimeout); });
  outside.join();
  expect({}, hours(12), hours(20));
  std::thread inside = world.StartThread("inside", [&] {
    EXPECT_THROW(world.Suspend(hours(1)), std::logic_error) << "only the driver moves the clock";
    EXPECT_THROW(world.AdvanceBy(hours(1)), std::logic_error);
    const std::uint64_t before = world.WakeUps();
    EXPECT_EQ(world.Wait(*never, hours(0)), kWaitTimeout);
    EXPECT_EQ(world.WakeUps(), before) << "a look lets nobody else run";
  });
  world.Join(inside);
  expect({}, hours(12), hours(20));
}

}  // namespace
}  // namespace platform
