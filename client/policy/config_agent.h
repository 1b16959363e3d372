// Where the component gets its policies from.
#pragma once

#include <filesystem>

#include "client/log/log.h"
#include "client/policy/policy_source.h"
#include "client/policy/telemetry_policy.h"

/// The copy of the last good telemetry policy in a data folder.
inline constexpr char kLastGoodPolicyFileName[] = "policy.last-good.json";

/// Gives the policies in force. Any thread may call it.
class IConfigAgent {
 public:
  IConfigAgent() = default;
  IConfigAgent(const IConfigAgent&) = delete;
  IConfigAgent& operator=(const IConfigAgent&) = delete;
  virtual ~IConfigAgent() = default;
  /// True when there is a policy; else false and `policy` stays untouched.
  virtual bool GetTelemetryPolicy(TelemetryPolicy& policy) = 0;
  virtual bool GetTvkPolicy(TVK::TvkPolicy& policy) = 0;
};

/// Policies from files: the telemetry policy and the small client policy beside it; see PolicySource. Any thread.
class ConfigPolicyAgent final : public IConfigAgent {
 public:
  struct Files {
    std::filesystem::path telemetry_policy;  ///< Gone, or never read: no consent.
    std::filesystem::path tvk_policy;        ///< Gone: both fields are empty.
    std::filesystem::path last_good;         ///< Copy of the last good telemetry policy. Empty: none is kept.
    std::filesystem::path tvk_last_good;     ///< The same of the client policy.
  };

  /// Takes away what a kill left of copies that were being written.
  explicit ConfigPolicyAgent(const Files& files);

  /// See PolicySource::Load.
  TVK::PolicyLoad LoadTelemetryPolicy(bool absence_counts);
  TVK::PolicyLoad LoadTvkPolicy(bool absence_counts);

  /// Writes the copies; see PolicySource::KeepLastGood.
  bool KeepLastGood();

  bool GetTelemetryPolicy(TelemetryPolicy& policy) override;
  bool GetTvkPolicy(TVK::TvkPolicy& policy) override;

  /// Of the telemetry policy; see PolicySource::standing.
  TVK::PolicyStanding telemetry_standing() const { return telemetry_policy_.standing(); }

 private:
  TVK::Log log_;
  TVK::PolicySource<TVK::PolicyDocument> telemetry_policy_;
  TVK::PolicySource<TVK::TvkPolicyDocument> tvk_policy_;
};
