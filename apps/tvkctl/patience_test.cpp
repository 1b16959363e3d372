#include "apps/tvkctl/patience.h"

#include <gtest/gtest.h>

#include <sstream>

#include "platform/simulated/virtual_runtime.h"

namespace tvkctl {
namespace {

TEST(PatienceTest, IsLostAfterTwoSecondsAndLaterAndLater) {
  platform::VirtualRuntime world;
  std::ostringstream errors;
  {
    const Patience patience(world, "the drives are asked", errors);
    world.AdvanceBy(std::chrono::milliseconds(1900));
  }
  EXPECT_EQ(errors.str(), "") << "what is quick says nothing";
  {
    const Patience patience(world, "the drives are asked", errors);
    world.AdvanceBy(std::chrono::seconds(7));
  }
  EXPECT_EQ(errors.str(),
            "tvkctl: the drives are asked, for 2 seconds now\ntvkctl: the drives are asked, for 4 seconds now\n");
}

TEST(PatienceTest, IsSilentWhereThereIsNoThread) {
  platform::VirtualRuntime world;
  world.RefuseThreads(true);
  std::ostringstream errors;
  {
    const Patience patience(world, "the drives are asked", errors);
    world.AdvanceBy(std::chrono::seconds(7));
  }
  EXPECT_EQ(errors.str(), "");
}

}  // namespace
}  // namespace tvkctl
