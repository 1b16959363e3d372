// A running service follows its policy file, whatever an editor does to it.
#include <gtest/gtest.h>

#include <fstream>
#include <optional>

#include "tests/e2e/service_under_test.h"

namespace {

class PolicyChange : public testing::Test {
 protected:
  void SetUp() override {
    folder_.WritePolicy(CpuPolicy("full"));
    service_.emplace(folder_);
    ASSERT_TRUE(service_->WaitForLine(CpuLine("DeviceInit"), kPatience));
  }

  bool WaitForLog(const std::string& log, const std::string& text, std::size_t count = 1) {
    return service_->WaitFor([&] { return folder_.CountInLog(log, text) >= count; }, kPatience);
  }
  bool WaitForStop(std::size_t count = 1) {
    return WaitForLog("EventManager.log", std::string("StopAndRemoveFromList ") + kCpuDatasetId + " successfully!",
                      count);
  }
  bool WaitForStart(std::size_t count) {
    return WaitForLog("EventManager.log", std::string("RunAndAddToList ") + kCpuDatasetId + " successfully!", count);
  }

  const ServiceFolder folder_;
  std::optional<ConsoleService> service_;
};

TEST_F(PolicyChange, ScopeStopsAndStartsTheMonitorHoweverTheFileIsWritten) {
  for (std::size_t round = 1; round <= 3; ++round) {
    folder_.WritePolicy(CpuPolicy("none"));
    ASSERT_TRUE(WaitForStop(round));
    std::ofstream(folder_.policy(), std::ios::trunc | std::ios::binary) << CpuPolicy("full");
    ASSERT_TRUE(WaitForStart(round));
  }
  EXPECT_EQ(CountLines(service_->Lines(), CpuLine("DeviceInit")), 1u) << "a monitor that comes back is no new device";
}

TEST_F(PolicyChange, BrokenFileLeavesThePolicyInForceUntilItIsMended) {
  std::string broken = CpuPolicy("none");
  broken.pop_back();
  folder_.WritePolicy(broken);
  ASSERT_TRUE(service_->WaitForLine("policy.json: cannot be used; the policy before it stays in force", kPatience));
  folder_.WritePolicy(R"({"telemetryScope": "sometimes", "datasets": []})");
  ASSERT_TRUE(service_->WaitForLine("policy.json: telemetryScope: ", kPatience));
  EXPECT_EQ(folder_.CountInLog("EventManager.log", "StopAndRemoveFromList"), 0u);

  folder_.WritePolicy(CpuPolicy("none"));
  EXPECT_TRUE(WaitForStop());
  EXPECT_TRUE(service_->WaitForLine("policy.json: is in force now", kPatience));
}

TEST_F(PolicyChange, AFileThatIsGoneIsNoConsentUntilThereIsOneAgain) {
  std::filesystem::remove(folder_.policy());
  ASSERT_TRUE(WaitForStop());
  EXPECT_TRUE(
      service_->WaitForLine("policy.json: there is no policy: nothing is collected until there is one", kPatience));
  folder_.WritePolicy(CpuPolicy("full"));
  EXPECT_TRUE(WaitForStart(1));
}

}  // namespace
