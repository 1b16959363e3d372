#include "client/policy/policy_apply.h"

#include "platform/files.h"

PolicyApplied ApplyTelemetryPolicy(std::string_view json, const std::filesystem::path& target) {
  PolicyDocument document = ParseTelemetryPolicy(json);
  PolicyApplied result;
  result.problems = std::move(document.problems);
  if (!document.policy) return result;
  // The first policy of a machine comes before its folder.
  result.failure = platform::MakePrivateFolder(std::filesystem::absolute(target).parent_path());
  if (result.failure.empty()) result.failure = platform::ReplaceFile(target, json);
  result.applied = result.failure.empty();
  return result;
}
