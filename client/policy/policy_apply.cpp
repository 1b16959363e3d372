#include "client/policy/policy_apply.h"

#include <system_error>

#include "client/policy/policy_document.h"
#include "platform/files.h"

namespace TVK {

std::filesystem::path PolicyFileBehind(const std::filesystem::path& policy) {
  std::error_code failure;
  if (!std::filesystem::is_symlink(policy, failure)) return policy;
  std::filesystem::path file = std::filesystem::canonical(policy, failure);
  return failure ? policy : file;
}

PolicyApplied ApplyTelemetryPolicy(std::string_view json, const std::filesystem::path& target) {
  PolicyApplied result;
  if (!ParseTelemetryPolicy(json).policy) return result;
  // Where the policy is a link, its owner keeps the file elsewhere: the file is replaced, and the link stays.
  // One that leads nowhere gives way to the file.
  const std::filesystem::path file = PolicyFileBehind(target);
  // The first policy of a machine comes before its folder.
  result.failure = platform::MakePrivateFolder(std::filesystem::absolute(file).parent_path());
  // Of an earlier one that was killed: the service, which removes them too, need not have the right to.
  if (result.failure.empty()) platform::RemoveLeftovers(file);
  if (result.failure.empty()) result.failure = platform::ReplaceFile(file, json);
  result.applied = result.failure.empty();
  return result;
}

}  // namespace TVK
