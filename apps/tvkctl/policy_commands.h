// The policy commands of tvkctl: each does its work, writes for a person or a program, and returns the exit code.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <limits>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "apps/tvkctl/policy_check.h"
#include "platform/runtime.h"

/// The width of lines that are not broken.
inline constexpr std::size_t kUnbroken = std::numeric_limits<std::size_t>::max();

/// A machine for which a policy is looked at.
struct CheckedDevice {
  std::string name;  ///< Of its facts file, as it was given; empty for this machine.
  TVK::DeviceTraits traits;
};

/// What a policy says, and what its service says of it.
struct PolicyContent {
  std::optional<std::string> text = {};   ///< Nothing: it cannot be read.
  std::string problem = {};               ///< Why not.
  std::wstring scope = {};                ///< In force; empty: that of the text, or not known.
  std::vector<std::string> remarks = {};  ///< For people, each a text without an end.
  std::set<std::wstring> running = {};    ///< The ids of datasets that run now, where that is known.
};

struct PolicyCheckOptions {
  /// The policy, and the name by which it is told.
  struct Document {
    std::string name;
    std::function<PolicyContent()> read;
  };

  Document policy;
  std::optional<Document> against = {};       ///< What it is compared with; only the difference is written then.
  std::optional<std::wstring> scope = {};     ///< Takes the place of the policy's.
  bool json = false;                          ///< One JSON object in one line instead of the report for people.
  std::vector<CheckedDevice> devices = {{}};  ///< At least one.
  std::size_t width = kUnbroken;              ///< Cells of a line of the report for people.
};

/// What a file says.
PolicyContent ReadPolicyFile(const std::filesystem::path& file);

/// A policy file as a document; "-" is `input`.
PolicyCheckOptions::Document PolicyFile(const std::filesystem::path& file, std::istream& input);

/// What a service says of its policy, with the text of the file where it goes by that, and the document in force: the
/// file's text, with what is wrong with it, as long as it says the same; else the document, with a remark.
PolicyContent WithPolicyInForce(PolicyContent of_file, std::string in_force);

/// The policy in force of the service at `place` (see platform::ChannelPlace), as a document: its file where the
/// service tells this account of it, and the account may read it. `runtime` must outlive it.
PolicyCheckOptions::Document PolicyInForce(std::filesystem::path place, platform::Runtime& runtime);

/// Reports on the policy, for each device; by the scope of its service where a host narrows it. 0: no mistake; 1:
/// `scope` is none of the scopes (said on `err`); 2: the policy cannot be read or has a mistake, or that which it is
/// compared with cannot be used (said on `err`); 5: a dataset starts that does not run by the policy which it is
/// compared with. Else all is reported on `out`, in UTF-8.
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
