// Policy documents: from JSON text to validated values. Nothing here opens a file; any thread may call it.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "client/policy/problem_list.h"
#include "client/policy/telemetry_policy.h"

namespace TVK {

struct PolicyDocument {
  std::optional<TelemetryPolicy> policy;  ///< Empty when a problem is fatal.
  std::vector<PolicyProblem> problems;    ///< In the order of the document.
};

/// The largest document that is read.
inline constexpr std::size_t kPolicySizeLimit = 1 << 20;

/// Reads a telemetry policy. The JSON is strict: one object, no comments, no duplicate keys, no text after it, at most
/// 32 levels deep, well-formed UTF-8. Wrong types and unknown scopes are fatal; unknown keys are reported and passed
/// over; so are unknown settings of the policy as a whole, which stay in it. What a dataset's id, name and settings
/// mean is not looked at here.
PolicyDocument ParseTelemetryPolicy(std::string_view json);

/// The same for who has more to say about the document: the problems are added to `problems`. Empty when one of them is
/// fatal.
std::optional<TelemetryPolicy> ReadTelemetryPolicy(std::string_view json, ProblemList& problems);

/// Whether `scope` is one of the telemetry scopes, in small letters.
bool IsTelemetryScope(std::wstring_view scope);

struct TvkPolicyDocument {
  std::optional<TvkPolicy> policy;
  std::vector<PolicyProblem> problems;
};

/// Reads a client policy: an object with the texts "devicePath" and "deviceSubscription", both optional.
TvkPolicyDocument ParseTvkPolicy(std::string_view json);

/// The JSON Schema (draft 2020-12) of the telemetry policy, as config/policy.schema.json holds it.
std::string_view TelemetryPolicySchema();

}  // namespace TVK
