#include "client/policy/config_agent.h"

ConfigPolicyAgent::ConfigPolicyAgent(const Files& files)
    : telemetry_policy_({files.telemetry_policy, files.last_good, TVK::ParseTelemetryPolicy, std::nullopt}),
      tvk_policy_({files.tvk_policy, files.tvk_last_good, TVK::ParseTvkPolicy, "{}"}) {
  TVK::utility::InitLog(log_, L"ConfigPolicyAgent.log", 4);
}

TVK::PolicyLoad ConfigPolicyAgent::LoadTelemetryPolicy() {
  return telemetry_policy_.Load(log_, L"ConfigPolicyAgent::LoadTelemetryPolicy");
}

TVK::PolicyLoad ConfigPolicyAgent::LoadTvkPolicy() {
  return tvk_policy_.Load(log_, L"ConfigPolicyAgent::LoadTvkPolicy");
}

void ConfigPolicyAgent::KeepLastGood() {
  telemetry_policy_.KeepLastGood(log_);
  tvk_policy_.KeepLastGood(log_);
}

bool ConfigPolicyAgent::GetTelemetryPolicy(TelemetryPolicy& policy) {
  return telemetry_policy_.Get(policy);
}

bool ConfigPolicyAgent::GetTvkPolicy(TVK::TvkPolicy& policy) {
  return tvk_policy_.Get(policy);
}
