// How the policy files are followed when reading them fails, which this system can play without anybody being told.
#include "component/policy_watch.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>
#include <fstream>

#include "platform/local.h"
#include "testing/exchanged_file_linux.h"
#include "testing/memory_shortage.h"
#include "testing/temp_folder.h"

namespace TVK {
namespace {

constexpr std::chrono::seconds kPatience(20);

/// Counts the errors of the telemetry policy that the agent's log tells of; behind the next reading
/// there is no memory when it is told so.
class AgentLog final : public LogBackend, public LogSink {
 public:
  std::shared_ptr<LogSink> Open(const std::wstring& /*file_name*/) override { return {std::shared_ptr<void>(), this}; }
  void Write(LogSeverity severity, std::wstring_view message) override {
    if (severity == LogSeverity::kError && message.find(L"LoadTelemetryPolicy") != message.npos) ++errors;
    if (!message.starts_with(L"ConfigPolicyAgent::LoadTelemetryPolicy: accepted")) return;
    if (fail_next.exchange(false)) BeginMemoryShortage(0, 1);
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
  /// Of the telemetry policy.
  std::size_t CountRemarks(const std::string& text) {
    const std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(std::ranges::count_if(remarks_, [&](const std::string& remark) {
      return remark.starts_with(files_.telemetry_policy.string()) && remark.find(text) != remark.npos;
    }));
  }
  /// Opens nothing: there may be no descriptor left.
  bool WaitFor(const std::function<bool()>& state) {
    const platform::SteadyTime latest = runtime_->clock().Steady() + kPatience;
    while (!state()) {
      if (runtime_->clock().Steady() > latest) return false;
      runtime_->Wait(*never_, std::chrono::milliseconds(10));
    }
    return true;
  }
  void ExpectToldOnce(const std::string& reason) {
    watch_.Reread();
    ASSERT_TRUE(WaitFor([&] { return CountRemarks("the policy before it stays in force") == 1; }));
    const platform::SteadyTime told = runtime_->clock().Steady();
    ASSERT_TRUE(WaitFor([&] { return runtime_->clock().Steady() - told > 2 * PolicyWatch::kRetry; }));
    EXPECT_EQ(CountRemarks(reason), 1u);
    EXPECT_EQ(log_->errors, 1);
    EXPECT_EQ(changes_, 0) << "what could not be read neither withdraws nor grants";
  }
  void ExpectWithdrawal() {
    ASSERT_TRUE(WaitFor([&] { return changes_ == 1; }));
    EXPECT_TRUE(withdrawn_);
    EXPECT_TRUE(WaitFor([&] { return CountRemarks("is in force now") == 1; }));
  }

  const TempFolder folder_;
  const std::shared_ptr<AgentLog> log_ = [] {
    auto log = std::make_shared<AgentLog>();
    SetLogBackend(log);
    return log;
  }();
  const std::unique_ptr<platform::Runtime> runtime_ = platform::MakeRealRuntime({});
  const std::unique_ptr<platform::Event> never_ = runtime_->MakeEvent(platform::EventReset::kManual);
  const PolicyWatch::Files files_{folder_.path() / "policy.json", folder_.path() / "client-policy.json"};
  std::optional<ExchangedFile> followed_;
  std::atomic<int> changes_ = 0;
  std::atomic<bool> withdrawn_ = false;
  std::atomic<int> new_paths_ = 0;
  std::mutex mutex_;  ///< Guards the next line.
  std::vector<std::string> remarks_;
  ConfigPolicyAgent agent_{{files_.telemetry_policy, files_.tvk_policy, {}, {}}};
  TVKPublisherSubscriber bus_{*runtime_};
  PolicyWatch watch_{*runtime_, agent_, bus_, files_, [this](RemarkWeight, const std::string& line) {
                       const std::lock_guard lock(mutex_);
                       remarks_.push_back(line);
                     }};
};

/// Lets this process open nothing more for as long as it lives.
class NoDescriptors {
 public:
  NoDescriptors() {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit none{.rlim_cur = 0, .rlim_max = before_.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;

 private:
  rlimit before_{};
};

TEST_F(PolicyWatchTest, AFileThatCouldNotBeReadIsReadAgainAndToldOnce) {
  followed_->LeadTo("/proc/self/mem");  // of which the beginning cannot be read
  ExpectToldOnce("Input/output error");
  followed_->LeadTo(folder_.path() / "none");
  ExpectWithdrawal();
}

#ifndef __SANITIZE_ADDRESS__
// The sanitiser that comes with it looks a class up through a pipe, for which it has no descriptor then.
TEST_F(PolicyWatchTest, AFileThatCouldNotBeOpenedForTooManyOpenFilesIsReadAgain) {
  followed_->LeadTo(folder_.path() / "none");
  {
    const NoDescriptors too_many;
    ExpectToldOnce("Too many open files");
  }
  ExpectWithdrawal();
}
#endif

TEST_F(PolicyWatchTest, AChangeThatAnExceptionKeptFromBeingToldIsToldByTheNextReading) {
  log_->fail_next = true;
  Write("client-policy.json", R"({"devicePath":"b"})");
  ASSERT_TRUE(WaitFor([&] { return new_paths_ == 1; }));
  EXPECT_FALSE(log_->fail_next) << "one reading failed";
  EXPECT_EQ(changes_, 0);
}

}  // namespace
}  // namespace TVK
