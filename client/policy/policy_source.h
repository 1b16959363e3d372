// One policy file, and the policy of it that is in force.
#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/log/log.h"
#include "client/policy/policy_document.h"

namespace TVK {

/// What loading a policy file did.
struct PolicyLoad {
  bool accepted = false;  ///< The document is in force now.
  bool changed = false;   ///< Accepted, and it differs from the one that was in force.
  std::vector<PolicyProblem> problems;
};

/// A policy file whose last good document stays in force when the file breaks. A copy of that document lets a start
/// with a broken file run with it. `Document` is what a parser gives: PolicyDocument or TvkPolicyDocument. Any thread.
template <typename Document>
class PolicySource {
 public:
  using Policy = typename decltype(Document::policy)::value_type;

  struct Options {
    std::filesystem::path file;
    std::filesystem::path copy;  ///< Of the last good document. Empty: none is kept.
    Document (*parse)(std::string_view text) = nullptr;
    std::optional<std::string> absent_text;  ///< What stands for a file that is not there; empty: that is a problem.
  };

  explicit PolicySource(Options options) : options_(std::move(options)) {}

  /// Reads and validates the file. A document that does not validate leaves the one in force; each problem is logged
  /// to `log` in the name of `operation`, with its path in the document. While none is in force, the copy takes its
  /// place when there is one; `accepted` is about the file all the same. Loads run one at a time.
  PolicyLoad Load(const Log& log, const wchar_t* operation);

  /// Writes the copy of the last document that was accepted, when it is not there yet, and has it flushed to the disk.
  /// That may take long: whoever follows the policy is told before. A failure is logged; the next call tries again.
  void KeepLastGood(const Log& log);

  /// True when there is a policy; else false and `policy` stays untouched.
  bool Get(Policy& policy) const;

 private:
  Document Read(const std::filesystem::path& file, std::string& text) const;
  /// Puts `policy` in force; true when it differs from the one before.
  bool Enforce(Policy policy);
  void FallBackToLastGood(const Log& log);

  const Options options_;
  std::mutex load_mutex_;                 ///< Held for a whole load or copy; taken before mutex_. Guards the next line.
  std::optional<std::string> good_text_;  ///< Accepted, and not known to be in the copy.
  mutable std::mutex mutex_;              ///< Guards the next line.
  std::shared_ptr<const Policy> in_force_;  ///< Null until one was accepted.
};

extern template class PolicySource<PolicyDocument>;
extern template class PolicySource<TvkPolicyDocument>;

}  // namespace TVK
