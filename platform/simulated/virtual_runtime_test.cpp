// What only the virtual runtime promises: when its clock moves.
#include "platform/simulated/virtual_runtime.h"

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>

namespace platform {
namespace {

using std::chrono::hours;
using std::chrono::seconds;

TEST(VirtualRuntime, ClockStandsStillBetweenAdvancesAndWhileAnyThreadWorks) {
  VirtualRuntime world;
  const auto never = world.MakeEvent(EventReset::kManual);
  std::promise<void> working;
  std::promise<void> go_on;
  std::thread worker = world.StartThread("worker", [&] {
    world.Wait(*never, milliseconds(10));
    EXPECT_THROW(world.AdvanceBy(seconds(1)), std::logic_error) << "only the driver moves the clock";
    working.set_value();
    go_on.get_future().wait();  // As a thread does that waits for a disk.
  });
  std::thread sleeper = world.StartThread("sleeper", [&] { world.Wait(*never, milliseconds(20)); });
  EXPECT_EQ(world.clock().Steady(), milliseconds(0));
  std::thread driver([&] { world.AdvanceBy(hours(1)); });
  working.get_future().wait();
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(world.clock().Steady(), milliseconds(10));
    std::this_thread::yield();
  }
  go_on.set_value();
  driver.join();
  EXPECT_EQ(world.clock().Steady(), hours(1));
  world.Join(worker);
  world.Join(sleeper);
}

}  // namespace
}  // namespace platform
