// Where the component gets its policies from.
#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "client/log/log.h"
#include "client/policy/policy_document.h"
#include "client/policy/telemetry_policy.h"

/// Gives the policies in force. Any thread may call it.
class IConfigAgent {
 public:
  IConfigAgent() = default;
  IConfigAgent(const IConfigAgent&) = delete;
  IConfigAgent& operator=(const IConfigAgent&) = delete;
  virtual ~IConfigAgent() = default;
  /// True when there is a policy; else false and `policy` stays untouched.
  virtual bool GetTelemetryPolicy(TelemetryPolicy& policy) = 0;
  virtual bool GetTvkPolicy(TvkPolicy& policy) = 0;
};

/// What loading a policy file did.
struct PolicyLoad {
  bool accepted = false;  ///< The document is in force now.
  bool changed = false;   ///< Accepted, and it differs from the one that was in force.
  std::vector<PolicyProblem> problems;
};

/// Policies from files: the telemetry policy and the small client policy beside it. The last good document of each
/// stays in force when a file breaks; the telemetry policy's is also kept in the data folder, so that a start with a
/// broken file runs with it.
class ConfigPolicyAgent final : public IConfigAgent {
 public:
  struct Files {
    std::filesystem::path telemetry_policy;
    std::filesystem::path tvk_policy;  ///< May not exist: both fields are then empty.
    std::filesystem::path last_good;   ///< Copy of the last good telemetry policy. Empty: none is kept.
  };

  explicit ConfigPolicyAgent(Files files);

  /// Reads and validates the telemetry policy file. A document that does not validate leaves the one in force; each
  /// problem is logged with its path in the document. At the first load the last good copy takes its place, when there
  /// is one; `accepted` is about the file all the same. Any thread; loads run one at a time.
  PolicyLoad LoadTelemetryPolicy();
  PolicyLoad LoadTvkPolicy();

  bool GetTelemetryPolicy(TelemetryPolicy& policy) override;
  bool GetTvkPolicy(TvkPolicy& policy) override;

 private:
  /// Puts `policy` in force; true when it differs from the one before.
  bool Enforce(TelemetryPolicy policy);
  /// Both run under load_mutex_. The copy is written only when it differs from what lies there.
  void KeepLastGood(const std::string& text);
  void FallBackToLastGood();

  const Files files_;
  TVK::Log log_;
  std::mutex load_mutex_;                                    ///< Held for a whole load; taken before mutex_.
  std::mutex mutex_;                                         ///< Guards the policies in force.
  std::shared_ptr<const TelemetryPolicy> telemetry_policy_;  ///< Null until one was accepted.
  std::optional<TvkPolicy> tvk_policy_;
};

/// Hands out the process's agent.
class ConfigAgentFactory {
 public:
  /// `agent` is not owned, may be null, and must outlive the factory's users.
  explicit ConfigAgentFactory(IConfigAgent* agent) : agent_(agent) {}
  /// Null when the process has none.
  IConfigAgent* GetConfigAgent() const { return agent_; }

 private:
  IConfigAgent* agent_;
};
