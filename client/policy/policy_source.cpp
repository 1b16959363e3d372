#include "client/policy/policy_source.h"

#include <filesystem>
#include <functional>
#include <system_error>
#include <utility>

#include "client/text/path_text.h"
#include "client/text/string.h"
#include "platform/files.h"

namespace TVK {

namespace {

void LogProblems(const Log& log, const wchar_t* operation, const std::filesystem::path& file,
                 const std::vector<PolicyProblem>& problems) {
  for (const PolicyProblem& problem : problems) {
    const std::wstring path = String::UTF8ToUTF16(problem.path);
    const std::wstring message = String::UTF8ToUTF16(problem.message);
    log.e(L"%s: %s: %s%s%s", operation, WidePath(file), path, path.empty() ? L"" : L": ", message);
  }
}

}  // namespace

template <typename Document>
typename PolicySource<Document>::Found PolicySource<Document>::Read(const std::filesystem::path& file) const {
  platform::FileProblem problem;
  std::optional<std::string> content = platform::ReadWholeFile(file, kPolicySizeLimit, &problem);
  Found found;
  if (content) {
    found.text = std::move(*content);
    found.document = options_.parse(found.text);
    found.state = found.document.policy ? PolicyFileState::kGood : PolicyFileState::kBroken;
    return found;
  }
  found.state = problem.fault == platform::FileFault::kAbsent       ? PolicyFileState::kMissing
                : problem.fault == platform::FileFault::kUnreadable ? PolicyFileState::kUnreadable
                                                                    : PolicyFileState::kBroken;
  found.text = problem.text;
  if (found.state != PolicyFileState::kMissing) found.document.problems.push_back({{}, std::move(problem.text), true});
  return found;
}

template <typename Document>
typename PolicySource<Document>::Found PolicySource<Document>::Find(bool absence_counts) const {
  Found found = Read(options_.file);
  if (found.state == PolicyFileState::kMissing && (absence_counts || state_ == PolicyFileState::kGone)) {
    found = {PolicyFileState::kGone, options_.absent_text, options_.parse(options_.absent_text)};
  }
  return found;
}

template <typename Document>
PolicyLoad PolicySource<Document>::Load(const Log& log, const wchar_t* operation, bool absence_counts) {
  const std::lock_guard load_lock(load_mutex_);
  Found found = Find(absence_counts);
  PolicyLoad load;
  load.state = found.state;
  if (found.document.policy) {
    load.in_force = PolicyInForce::kOfFile;
    load.changed = Enforce(std::move(*found.document.policy));
    good_text_ = found.text;
  } else {
    load.in_force = FallBack(log, found.state);
    load.changed = load.in_force == PolicyInForce::kLastGood || load.in_force == PolicyInForce::kAbsence;
  }
  load.news = IsNews(found, load.changed);
  load.problems = std::move(found.document.problems);
  if (load.state != PolicyFileState::kMissing) Remember(load);
  if (load.news) LogProblems(log, operation, options_.file, load.problems);
  if (load.news || found.state == PolicyFileState::kGood) {
    log.i(L"%s: accepted = %d, changed = %d", operation, load.in_force == PolicyInForce::kOfFile, load.changed);
  }
  return load;
}

template <typename Document>
bool PolicySource<Document>::IsNews(const Found& found, bool changed) {
  if (found.state == PolicyFileState::kMissing) return false;
  const bool another_state = state_ != found.state;
  const std::size_t before = std::exchange(fingerprint_, std::hash<std::string>{}(found.text));
  state_ = found.state;
  // A good policy that was only written differently is nothing that anybody has to know of.
  return another_state || (found.state == PolicyFileState::kGood ? changed : fingerprint_ != before);
}

template <typename Document>
void PolicySource<Document>::Remember(const PolicyLoad& load) {
  const std::lock_guard lock(mutex_);
  standing_.problem.clear();
  if (load.in_force == PolicyInForce::kOfFile) {
    standing_.origin = load.state == PolicyFileState::kGone ? PolicyOrigin::kNone : PolicyOrigin::kFile;
    return;
  }
  if (!load.problems.empty()) {
    const PolicyProblem& first = load.problems.front();
    standing_.problem = first.path.empty() ? first.message : first.path + ": " + first.message;
  }
  // What was in force before was the file's, or the absence of one: the second goes on.
  const bool of_file = load.in_force == PolicyInForce::kLastGood ||
                       (load.in_force == PolicyInForce::kBefore && standing_.origin != PolicyOrigin::kNone);
  standing_.origin = of_file ? PolicyOrigin::kLastGood : PolicyOrigin::kNone;
}

template <typename Document>
PolicyStanding PolicySource<Document>::standing() const {
  const std::lock_guard lock(mutex_);
  return standing_;
}

template <typename Document>
bool PolicySource<Document>::Enforce(Policy policy) {
  auto next = std::make_shared<const Policy>(std::move(policy));
  const std::lock_guard lock(mutex_);
  const bool changed = in_force_ == nullptr || *in_force_ != *next;
  in_force_ = std::move(next);
  return changed;
}

template <typename Document>
bool PolicySource<Document>::KeepLastGood(const Log& log) {
  const std::lock_guard load_lock(load_mutex_);
  if (options_.copy.empty() || !good_text_) return true;
  if (platform::ReadWholeFile(options_.copy, kPolicySizeLimit) != good_text_) {
    std::string failure = platform::ReplaceFile(options_.copy, *good_text_, platform::FileAccess::kPrivate);
    if (!failure.empty()) {
      // A full disk takes no new copy, but lets the old one go.
      std::error_code removal;
      std::filesystem::remove(options_.copy, removal);
      if (removal) failure += "; an older copy stays: " + removal.message();
      if (failure != copy_failure_) log.e(L"%s: %s", L"PolicySource::KeepLastGood", String::UTF8ToUTF16(failure));
      copy_failure_ = std::move(failure);
      return false;
    }
  }
  copy_failure_.clear();
  good_text_.reset();
  return true;
}

template <typename Document>
PolicyInForce PolicySource<Document>::FallBack(const Log& log, PolicyFileState state) {
  constexpr const wchar_t* kOperation = L"PolicySource::FallBack";
  {
    const std::lock_guard lock(mutex_);
    if (in_force_ != nullptr) return PolicyInForce::kBefore;
  }
  if (!options_.copy.empty()) {
    Found copy = Read(options_.copy);
    LogProblems(log, kOperation, options_.copy, copy.document.problems);
    if (copy.document.policy) {
      Enforce(std::move(*copy.document.policy));
      log.i(L"%s: the last good policy is in force: %s", kOperation, WidePath(options_.copy));
      return PolicyInForce::kLastGood;
    }
  }
  if (state != PolicyFileState::kUnreadable || !options_.absent_until_read) return PolicyInForce::kNone;
  Enforce(*options_.parse(options_.absent_text).policy);
  return PolicyInForce::kAbsence;
}

template <typename Document>
bool PolicySource<Document>::Get(Policy& policy) const {
  std::shared_ptr<const Policy> current;
  {
    const std::lock_guard lock(mutex_);
    current = in_force_;
  }
  if (current == nullptr) return false;
  policy = *current;
  return true;
}

template class PolicySource<PolicyDocument>;
template class PolicySource<TvkPolicyDocument>;

}  // namespace TVK
