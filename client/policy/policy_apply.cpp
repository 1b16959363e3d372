#include "client/policy/policy_apply.h"

#include <system_error>

#include "client/policy/policy_document.h"
#include "platform/files.h"

namespace TVK {

PolicyApplied ApplyTelemetryPolicy(std::string_view json, const std::filesystem::path& target) {
  PolicyApplied result;
  if (!ParseTelemetryPolicy(json).policy) return result;
  // Where the policy is a link, its owner keeps the file elsewhere: the file is replaced, and the link stays.
  std::error_code failure;
  std::filesystem::path file = target;
  if (std::filesystem::is_symlink(target, failure)) file = std::filesystem::canonical(target, failure);
  if (failure) file = target;  // a link that leads nowhere gives way to the file
  // The first policy of a machine comes before its folder.
  result.failure = platform::MakePrivateFolder(std::filesystem::absolute(file).parent_path());
  // Of an earlier one that was killed: the service, which removes them too, need not have the right to.
  if (result.failure.empty()) platform::RemoveLeftovers(file);
  if (result.failure.empty()) result.failure = platform::ReplaceFile(file, json);
  result.applied = result.failure.empty();
  return result;
}

}  // namespace TVK
