// What only the virtual runtime promises: when its clock moves, and in which order things happen.
#include "platform/simulated/virtual_runtime.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <stdexcept>

namespace platform {
namespace {

using std::chrono::hours;
using std::chrono::minutes;
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

TEST(VirtualRuntime, ThingsDueAtOneInstantHappenOneAfterTheOtherByAge) {
  VirtualRuntime world;
  const auto stop = world.MakeEvent(EventReset::kManual);
  std::vector<std::string> events;  // Without a lock: only one thread runs at a time here.
  const auto periodic = [&](std::string name, int period) {
    return world.StartThread(name, [&world, &stop, &events, name, period] {
      while (world.Wait(*stop, seconds(period)) == kWaitTimeout)
        events.push_back(name);
    });
  };
  std::thread a = periodic("a", 2);
  std::unique_ptr<OneShotTimer> timer;
  timer = world.MakeTimer([&] {
    events.push_back("timer");
    timer->Arm(seconds(1));
  });
  std::thread b = periodic("b", 1);
  timer->Arm(seconds(1));
  world.AdvanceBy(seconds(2));
  EXPECT_THAT(events, testing::ElementsAre("timer", "b", "a", "timer", "b"));
  timer->Disarm();
  stop->Set();
  world.Join(a);
  world.Join(b);
}

}  // namespace
}  // namespace platform
