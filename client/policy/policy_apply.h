// Puts a telemetry policy in place.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace TVK {

struct PolicyApplied {
  bool applied = false;
  std::string failure;  ///< Why `target` could not be written; empty when it was, or the policy cannot be used.
};

/// The file that a policy which is a link leads to; `policy` itself where it is none, or leads nowhere.
std::filesystem::path PolicyFileBehind(const std::filesystem::path& policy);

/// Validates the document and puts it in place of `target`, as it stands, so that a reader sees the old or the new
/// policy; a missing folder is made, for the running account alone. Of a link the file is replaced that it leads to. A
/// document with a fatal problem, or a failed write, leaves `target` untouched. Any thread.
PolicyApplied ApplyTelemetryPolicy(std::string_view json, const std::filesystem::path& target);

}  // namespace TVK
