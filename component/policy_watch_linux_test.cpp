// How the policy files are followed when reading them fails, which this system can play without anybody being told.
#include "component/policy_watch.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <stdexcept>

#include "platform/local.h"
#include "testing/child_process.h"
#include "testing/exchanged_file_linux.h"
#include "testing/temp_folder.h"

namespace TVK {
namespace {

constexpr std::chrono::seconds kPatience(20);

/// Counts the readings of the telemetry policy that the agent's log tells of, and the errors; throws at the next
/// reading when it is told to.
class AgentLog final : public LogBackend, public LogSink {
 public:
  std::shared_ptr<LogSink> Open(const std::wstring& /*file_name*/) override { return {std::shared_ptr<void>(), this}; }
  void Write(LogSeverity severity, std::wstring_view message) override {
    if (severity == LogSeverity::kError) ++errors;
    if (!message.starts_with(L"ConfigPolicyAgent::LoadTelemetryPolicy: accepted")) return;
    if (fail_next.exchange(false)) throw std::runtime_error("no memory");
  }
  std::atomic<int> errors = 0;
  std::atomic<bool> fail_next = false;
};

/// Both files good, read and watched. The telemetry policy is whatever file a descriptor of ours stands for: exchanging
/// that one tells no watcher anything.
class PolicyWatchTest : public testing::Test {
 protected:
  PolicyWatchTest() {
    Write("full", R"({"telemetryScope":"full","datasets":[]})");
    Write("none", R"({"telemetryScope":"none","datasets":[]})");
    Write("client-policy.json", R"({"devicePath":"a"})");
    followed_.emplace(files_.telemetry_policy, folder_.path() / "full");
    agent_.LoadTelemetryPolicy(true);
    agent_.LoadTvkPolicy(true);
    bus_.Subscribe([this](TVKNotificationData& data) { Hear(data); }, false);
    EXPECT_EQ(watch_.Start(), "");
  }
  ~PolicyWatchTest() override { SetLogBackend(nullptr); }

  void Hear(TVKNotificationData& data) {
    data.deserializePayloadForTvkPolicy(data.getPayload());
    TelemetryPolicy policy;
    if (data.getEventState() == kTvkPolicyChanged) new_paths_ += data.is_device_path_change() ? 1 : 0;
    if (data.getEventState() != kTelemetryPolicyChanged || !agent_.GetTelemetryPolicy(policy)) return;
    withdrawn_ = policy.telemetry_scope == L"none";
    ++changes_;
  }
  void Write(const std::string& name, const std::string& text) {
    std::ofstream(folder_.path() / name, std::ios::binary) << text;
  }
  std::size_t CountRemarks(const std::string& text) {
    const std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(
        std::ranges::count_if(remarks_, [&](const std::string& remark) { return remark.find(text) != remark.npos; }));
  }

  const TempFolder folder_;
  const std::shared_ptr<AgentLog> log_ = [] {
    auto log = std::make_shared<AgentLog>();
    SetLogBackend(log);
    return log;
  }();
  const std::unique_ptr<platform::Runtime> runtime_ = platform::MakeRealRuntime({});
  const PolicyWatch::Files files_{folder_.path() / "policy.json", folder_.path() / "client-policy.json"};
  std::optional<ExchangedFile> followed_;
  std::atomic<int> changes_ = 0;
  std::atomic<bool> withdrawn_ = false;
  std::atomic<int> new_paths_ = 0;
  std::mutex mutex_;  ///< Guards the next line.
  std::vector<std::string> remarks_;
  ConfigPolicyAgent agent_{{files_.telemetry_policy, files_.tvk_policy, {}, {}}};
  TVKPublisherSubscriber bus_{*runtime_};
  PolicyWatch watch_{*runtime_, agent_, bus_, files_, [this](const std::string& line) {
                       const std::lock_guard lock(mutex_);
                       remarks_.push_back(line);
                     }};
};

TEST_F(PolicyWatchTest, AFileThatCouldNotBeReadIsReadAgainAndToldOnce) {
  followed_->LeadTo("/proc/self/mem");  // of which the beginning cannot be read
  watch_.Reread();
  ASSERT_TRUE(WaitForState([&] { return CountRemarks("the policy before it stays in force") == 1; }, kPatience));
  const platform::SteadyTime told = runtime_->clock().Steady();
  ASSERT_TRUE(WaitForState([&] { return runtime_->clock().Steady() - told > 2 * PolicyWatch::kRetry; }, kPatience));
  EXPECT_EQ(CountRemarks("Input/output error"), 1u);
  EXPECT_EQ(log_->errors, 1);
  EXPECT_EQ(changes_, 0) << "what could not be read neither withdraws nor grants";
  followed_->LeadTo(folder_.path() / "none");
  ASSERT_TRUE(WaitForState([&] { return changes_ == 1; }, kPatience));
  EXPECT_TRUE(withdrawn_);
  EXPECT_EQ(CountRemarks("policy.json: is in force now"), 1u);
}

TEST_F(PolicyWatchTest, AChangeThatAnExceptionKeptFromBeingToldIsToldByTheNextReading) {
  log_->fail_next = true;
  Write("client-policy.json", R"({"devicePath":"b"})");
  ASSERT_TRUE(WaitForState([&] { return new_paths_ == 1; }, kPatience));
  EXPECT_FALSE(log_->fail_next) << "one reading failed";
  EXPECT_EQ(changes_, 0);
}

}  // namespace
}  // namespace TVK
