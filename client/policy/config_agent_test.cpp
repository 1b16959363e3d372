#include "client/policy/config_agent.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "client/policy/policy_apply.h"
#include "testing/log_capture.h"
#include "testing/temp_folder.h"

namespace TVK {
namespace {

constexpr char kBasic[] = R"({"telemetryScope":"basic","datasets":[]})";
constexpr char kFull[] = R"({"telemetryScope":"full","datasets":[]})";
constexpr char kBroken[] = R"({"telemetryScope":"loud","datasets":[]})";

class ConfigPolicyAgentTest : public testing::Test {
 protected:
  void Write(const std::filesystem::path& file, std::string_view text) {
    std::ofstream(file, std::ios::binary).write(text.data(), static_cast<std::streamsize>(text.size()));
  }
  static std::string Read(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  static std::wstring Scope(ConfigPolicyAgent& agent) {
    TelemetryPolicy policy;
    return agent.GetTelemetryPolicy(policy) ? policy.telemetry_scope : L"no policy";
  }

  TempFolder folder_;
  LogCapture log_;
  const ConfigPolicyAgent::Files files_{folder_.path() / "policy.json", folder_.path() / "client-policy.json",
                                        folder_.path() / "last-good.json", folder_.path() / "client-last-good.json"};
};

TEST_F(ConfigPolicyAgentTest, BrokenFileLeavesThePolicyInForceAlsoOverARestart) {
  ConfigPolicyAgent agent(files_);
  Write(files_.telemetry_policy, kBroken);
  EXPECT_EQ(agent.LoadTelemetryPolicy(true).in_force, PolicyInForce::kNone);
  EXPECT_EQ(Scope(agent), L"no policy");
  EXPECT_EQ(agent.telemetry_standing().origin, PolicyOrigin::kNone);
  EXPECT_NE(agent.telemetry_standing().problem.find("telemetryScope: \"loud\""), std::string::npos);

  Write(files_.telemetry_policy, kBasic);
  PolicyLoad load = agent.LoadTelemetryPolicy(false);
  EXPECT_TRUE(load.state == PolicyFileState::kGood && load.changed && load.news);
  load = agent.LoadTelemetryPolicy(false);
  EXPECT_FALSE(load.changed || load.news);

  log_.Clear();
  for (const char* const broken : {kBroken, kBroken, "", ""}) {
    const bool again = load.state == PolicyFileState::kBroken && Read(files_.telemetry_policy) == broken;
    Write(files_.telemetry_policy, broken);
    load = agent.LoadTelemetryPolicy(false);
    EXPECT_EQ(load.state, PolicyFileState::kBroken);
    EXPECT_EQ(load.in_force, PolicyInForce::kBefore);
    EXPECT_FALSE(load.changed);
    EXPECT_NE(load.news, again) << "what is wrong is told once";
    EXPECT_EQ(load.problems.size(), 1u);
  }
  EXPECT_EQ(log_.Count(L"policy.json: telemetryScope: \"loud\" is no scope"), 1u);
  EXPECT_EQ(Scope(agent), L"basic");
  EXPECT_EQ(agent.telemetry_standing().origin, PolicyOrigin::kLastGood);
  agent.KeepLastGood();
  EXPECT_EQ(Read(files_.last_good), kBasic);

  // A start with a broken file takes the copy; the same policy in the mended file is no change for those who saw it.
  ConfigPolicyAgent next(files_);
  load = next.LoadTelemetryPolicy(true);
  EXPECT_TRUE(load.in_force == PolicyInForce::kLastGood && load.changed);
  EXPECT_EQ(Scope(next), L"basic");
  EXPECT_EQ(next.telemetry_standing().origin, PolicyOrigin::kLastGood);
  Write(files_.telemetry_policy, kBasic);
  load = next.LoadTelemetryPolicy(false);
  EXPECT_TRUE(load.state == PolicyFileState::kGood && !load.changed && load.news);
  Write(files_.telemetry_policy, kFull);
  EXPECT_TRUE(next.LoadTelemetryPolicy(false).changed);
  EXPECT_EQ(Scope(next), L"full");
  EXPECT_EQ(next.telemetry_standing().origin, PolicyOrigin::kFile);
  EXPECT_EQ(next.telemetry_standing().problem, "");
  next.KeepLastGood();
  EXPECT_EQ(Read(files_.last_good), kFull);
}

TEST_F(ConfigPolicyAgentTest, ACopyThatCannotBeRenewedIsNoConsentAnyMore) {
  std::filesystem::create_directory(files_.last_good);  // in whose place no file can be put
  Write(files_.telemetry_policy, kBasic);
  ConfigPolicyAgent agent(files_);
  agent.LoadTelemetryPolicy(true);
  EXPECT_FALSE(agent.KeepLastGood());
  EXPECT_FALSE(std::filesystem::exists(files_.last_good));
  EXPECT_TRUE(agent.KeepLastGood());
  EXPECT_EQ(Read(files_.last_good), kBasic);
}

TEST_F(ConfigPolicyAgentTest, WithoutAFileThereIsNoConsent) {
  Write(files_.telemetry_policy, kFull);
  ConfigPolicyAgent agent(files_);
  agent.LoadTelemetryPolicy(true);
  agent.KeepLastGood();
  std::filesystem::remove(files_.telemetry_policy);
  PolicyLoad load = agent.LoadTelemetryPolicy(false);
  EXPECT_EQ(load.state, PolicyFileState::kMissing);
  EXPECT_FALSE(load.changed || load.news) << "an editor may be at it";
  EXPECT_EQ(Scope(agent), L"full");
  load = agent.LoadTelemetryPolicy(true);
  EXPECT_EQ(load.state, PolicyFileState::kGone);
  EXPECT_TRUE(load.changed && load.news);
  EXPECT_EQ(Scope(agent), L"none");
  EXPECT_EQ(agent.LoadTelemetryPolicy(false).state, PolicyFileState::kGone) << "it is gone already";

  // A start finds no consent either, and neither does a later one whose file is broken.
  ConfigPolicyAgent next(files_);
  EXPECT_EQ(next.LoadTelemetryPolicy(true).state, PolicyFileState::kGone);
  EXPECT_EQ(Scope(next), L"none");
  next.KeepLastGood();
  Write(files_.telemetry_policy, kBroken);
  ConfigPolicyAgent third(files_);
  EXPECT_EQ(third.LoadTelemetryPolicy(true).in_force, PolicyInForce::kLastGood);
  EXPECT_EQ(Scope(third), L"none");
}

TEST_F(ConfigPolicyAgentTest, ClientPolicyMayBeAbsentButNotBroken) {
  ConfigPolicyAgent agent(files_);
  TvkPolicy policy{L"before", L"before"};
  Write(files_.tvk_policy, R"({"devicePath":1,"x":2})");
  const PolicyLoad load = agent.LoadTvkPolicy(true);
  EXPECT_EQ(load.state, PolicyFileState::kBroken);
  ASSERT_EQ(load.problems.size(), 2u);
  EXPECT_EQ(load.problems[0].path, "devicePath");
  EXPECT_EQ(load.problems[1].message, "the key is unknown and has no effect");
  EXPECT_FALSE(agent.GetTvkPolicy(policy));
  EXPECT_EQ(policy.device_path, L"before");

  Write(files_.tvk_policy, R"({"devicePath":"a/b","deviceSubscription":"s"})");
  EXPECT_TRUE(agent.LoadTvkPolicy(false).changed);
  ASSERT_TRUE(agent.GetTvkPolicy(policy));
  EXPECT_EQ(policy, (TvkPolicy{L"a/b", L"s"}));

  agent.KeepLastGood();
  Write(files_.tvk_policy, "{");
  ConfigPolicyAgent next(files_);
  EXPECT_EQ(next.LoadTvkPolicy(true).in_force, PolicyInForce::kLastGood);
  ASSERT_TRUE(next.GetTvkPolicy(policy));
  EXPECT_EQ(policy, (TvkPolicy{L"a/b", L"s"}));

  std::filesystem::remove(files_.tvk_policy);
  EXPECT_FALSE(agent.LoadTvkPolicy(false).changed);
  EXPECT_TRUE(agent.LoadTvkPolicy(true).changed);
  ASSERT_TRUE(agent.GetTvkPolicy(policy));
  EXPECT_EQ(policy, TvkPolicy());
}

TEST_F(ConfigPolicyAgentTest, AnAppliedPolicyTakesThePlaceOfTheFileThatALinkStandsFor) {
  EXPECT_FALSE(ApplyTelemetryPolicy(kBroken, files_.telemetry_policy).applied);
  EXPECT_TRUE(ApplyTelemetryPolicy(kBasic, files_.telemetry_policy).applied);
  EXPECT_EQ(Read(files_.telemetry_policy), kBasic);
  const std::filesystem::path link = folder_.path() / "link.json";
  std::error_code refused;  // on Windows only administrators make links
  std::filesystem::create_symlink(files_.telemetry_policy, link, refused);
  if (refused) return;
  EXPECT_TRUE(ApplyTelemetryPolicy(kFull, link).applied);
  EXPECT_EQ(Read(files_.telemetry_policy), kFull);
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(PolicyFileBehind(link), std::filesystem::canonical(files_.telemetry_policy))
      << "where a kill leaves a copy";
  std::filesystem::remove(files_.telemetry_policy);
  EXPECT_EQ(PolicyFileBehind(link), link);
}

}  // namespace

}  // namespace TVK
