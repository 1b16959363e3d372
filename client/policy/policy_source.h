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

/// How a policy file was found.
enum class PolicyFileState {
  kGood,
  kBroken,      ///< Read, or no file that can be: its content is of no use.
  kUnreadable,  ///< Could not be read this time. To be tried again.
  kMissing,     ///< Is not there, perhaps for as long as an editor takes to replace it. To be looked at again.
  kGone,        ///< Is not there, and that holds.
};

/// What holds after a load.
enum class PolicyInForce {
  kOfFile,    ///< What the file says; of one that is gone, what its absence says.
  kBefore,    ///< The one that was in force before.
  kLastGood,  ///< The copy of the last good one, since nothing was in force yet.
  kAbsence,   ///< What the absence of the file says, until it can be read: nothing was in force, and there is no copy.
  kNone,
};

/// What loading a policy file did.
struct PolicyLoad {
  PolicyFileState state = PolicyFileState::kBroken;
  PolicyInForce in_force = PolicyInForce::kNone;
  bool changed = false;  ///< What is in force is another than before the load.
  bool news = false;     ///< The load before found something else; false while the file is missing.
  std::vector<PolicyProblem> problems;
};

/// Where the policy in force comes from.
enum class PolicyOrigin {
  kNone,      ///< There is none, or the file is gone: nobody consents to anything.
  kFile,      ///< It is what the file says.
  kLastGood,  ///< The file says something else, or nothing that can be used: it is the last good one.
};

/// How the policy file and the policy in force stand to each other.
struct PolicyStanding {
  PolicyOrigin origin = PolicyOrigin::kNone;
  std::string problem;  ///< The first thing that is wrong with the file as it was read last; empty where nothing is.
};

/// A policy file whose last good document stays in force while the file is broken or cannot be read. A copy of that
/// document lets a start with such a file run with it. A file that is gone is a document of its own.
/// `Document` is what a parser gives: PolicyDocument or TvkPolicyDocument. Any thread.
template <typename Document>
class PolicySource {
 public:
  using Policy = typename decltype(Document::policy)::value_type;

  struct Options {
    std::filesystem::path file;
    std::filesystem::path copy;  ///< Of the last good document. Empty: none is kept.
    Document (*parse)(std::string_view text) = nullptr;
    std::string absent_text;  ///< What stands for a file that is gone; good.
    /// Whether that also holds while a file cannot be read, nothing is in force, and there is no copy.
    bool absent_until_read = false;
  };

  explicit PolicySource(Options options) : options_(std::move(options)) {}

  /// Reads and validates the file. `absence_counts`: one that is not there counts as gone at once, as it does when it
  /// was gone before; else it is missing, and nothing changes. What each found that the one before did not is logged to
  /// `log` in the name of `operation`, each problem with its path in the document. Loads run one at a time.
  PolicyLoad Load(const Log& log, const wchar_t* operation, bool absence_counts);

  /// Writes the copy of the last document that was accepted, when it is not there yet, and has it flushed to the disk.
  /// That may take long: whoever follows the policy is told before. False when it could not be written: an older copy
  /// is removed then, since it may hold a consent that was withdrawn; the failure is logged once, and the next call
  /// tries again.
  bool KeepLastGood(const Log& log);

  /// True when there is a policy; else false and `policy` stays untouched.
  bool Get(Policy& policy) const;

  /// As the last load found it; an absence that may be a replacement changes nothing.
  PolicyStanding standing() const;

 private:
  struct Found {
    PolicyFileState state = PolicyFileState::kBroken;
    std::string text;  ///< Of the document; of a file that could not be read, why.
    Document document;
  };
  Found Read(const std::filesystem::path& file) const;
  /// The same, with what stands for a file that is gone.
  Found Find(bool absence_counts) const;
  /// Puts `policy` in force; true when it differs from the one before.
  bool Enforce(Policy policy);
  /// What holds when the file, in this state, says nothing.
  PolicyInForce FallBack(const Log& log, PolicyFileState state);
  bool IsNews(const Found& found, bool changed);
  void Remember(const PolicyLoad& load);

  const Options options_;
  std::mutex load_mutex_;                 ///< Held for a whole load or copy; taken before mutex_. Guards the next four.
  std::optional<std::string> good_text_;  ///< Accepted, and not known to be in the copy.
  std::string copy_failure_;              ///< Why it is not; empty: it was not tried.
  std::optional<PolicyFileState> state_;  ///< Of the last load that did not miss the file.
  std::size_t fingerprint_ = 0;           ///< Of what that load found.
  mutable std::mutex mutex_;              ///< Guards what follows.
  std::shared_ptr<const Policy> in_force_;  ///< Null until one was accepted.
  PolicyStanding standing_;
};

extern template class PolicySource<PolicyDocument>;
extern template class PolicySource<TvkPolicyDocument>;

}  // namespace TVK
