#include "client/policy/config_agent.h"

#include "client/log/service_logs.h"
#include "client/policy/policy_apply.h"
#include "platform/files.h"

namespace {

// Without a policy nobody has consented to anything.
constexpr char kNoConsent[] = R"({"telemetryScope":"none","datasets":[]})";

}  // namespace

ConfigPolicyAgent::ConfigPolicyAgent(const Files& files)
    : telemetry_policy_({.file = files.telemetry_policy,
                         .copy = files.last_good,
                         .parse = TVK::ParseTelemetryPolicy,
                         .absent_text = kNoConsent,
                         .absent_until_read = true}),
      tvk_policy_({.file = files.tvk_policy,
                   .copy = files.tvk_last_good,
                   .parse = TVK::ParseTvkPolicy,
                   .absent_text = "{}",
                   .absent_until_read = false}) {
  TVK::utility::InitLog(log_, TVK::ServiceLog(L"ConfigPolicyAgent.log"), 4);
  for (const std::filesystem::path& file :
       {files.telemetry_policy, files.tvk_policy, files.last_good, files.tvk_last_good}) {
    if (!file.empty()) platform::RemoveLeftovers(TVK::PolicyFileBehind(file));
  }
}

TVK::PolicyLoad ConfigPolicyAgent::LoadTelemetryPolicy(bool absence_counts) {
  return telemetry_policy_.Load(log_, L"ConfigPolicyAgent::LoadTelemetryPolicy", absence_counts);
}

TVK::PolicyLoad ConfigPolicyAgent::LoadTvkPolicy(bool absence_counts) {
  return tvk_policy_.Load(log_, L"ConfigPolicyAgent::LoadTvkPolicy", absence_counts);
}

bool ConfigPolicyAgent::KeepLastGood() {
  const bool telemetry_is_kept = telemetry_policy_.KeepLastGood(log_);
  return tvk_policy_.KeepLastGood(log_) && telemetry_is_kept;
}

bool ConfigPolicyAgent::GetTelemetryPolicy(TelemetryPolicy& policy) {
  return telemetry_policy_.Get(policy);
}

bool ConfigPolicyAgent::GetTvkPolicy(TVK::TvkPolicy& policy) {
  return tvk_policy_.Get(policy);
}
