// The policy commands of tvkctl: each does its work, writes for a person or a program, and returns the exit code.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>

#include "apps/tvkctl/policy_check.h"

struct PolicyCheckOptions {
  std::filesystem::path file;
  std::optional<std::wstring> scope;  ///< Takes the place of the policy's.
  bool json = false;                  ///< One JSON object in one line instead of the report for people.
  TVK::DeviceTraits device;           ///< What the policy's filters look at.
};

/// Reports on the policy in the file. 0: no mistake; 1: `scope` is none of the scopes (said on `err`); 2: the file
/// cannot be read or its policy has a mistake. Everything but 1 is reported on `out`, in UTF-8.
int RunPolicyCheck(const PolicyCheckOptions& options, const TVK::DatasetTable& table, std::ostream& out,
                   std::ostream& err);

/// Writes the JSON Schema of the telemetry policy. Returns 0.
int RunPolicySchema(std::ostream& out);

struct PolicyApplyOptions {
  std::filesystem::path file;
  std::filesystem::path target;
  TVK::DeviceTraits device;  ///< What the policy's filters look at.
};

/// Validates the policy in `file` and puts it in place of `target`; every mistake in it is told on `err`. 0: done, said
/// on `out`; 2: the policy cannot be used; 3: `target` could not be written. `target` is untouched unless 0 is
/// returned.
int RunPolicyApply(const PolicyApplyOptions& options, const TVK::DatasetTable& table, std::ostream& out,
                   std::ostream& err);
