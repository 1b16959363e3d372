#include "client/policy/policy_source.h"

#include <system_error>

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

bool IsAbsent(const std::filesystem::path& file) {
  std::error_code ignored;  // a file that cannot be looked at is reported by the reading
  return std::filesystem::status(file, ignored).type() == std::filesystem::file_type::not_found;
}

}  // namespace

// The document that `file` holds, or an empty one whose problem says why it cannot be read.
template <typename Document>
Document PolicySource<Document>::Read(const std::filesystem::path& file, std::string& text) const {
  std::string problem;
  std::optional<std::string> content = platform::ReadWholeFile(file, kPolicySizeLimit, &problem);
  if (!content) {
    Document unread;
    unread.problems.push_back({{}, problem, true});
    return unread;
  }
  text = std::move(*content);
  return options_.parse(text);
}

template <typename Document>
PolicyLoad PolicySource<Document>::Load(const Log& log, const wchar_t* operation) {
  const std::lock_guard load_lock(load_mutex_);
  std::string text;
  Document document;
  if (options_.absent_text && IsAbsent(options_.file)) {
    text = *options_.absent_text;
    document = options_.parse(text);
  } else {
    document = Read(options_.file, text);
  }
  LogProblems(log, operation, options_.file, document.problems);
  PolicyLoad load{document.policy.has_value(), false, std::move(document.problems)};
  if (load.accepted) {
    load.changed = Enforce(std::move(*document.policy));
    good_text_ = std::move(text);
  } else {
    FallBackToLastGood(log);
  }
  log.i(L"%s: accepted = %d, changed = %d", operation, load.accepted, load.changed);
  return load;
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
void PolicySource<Document>::KeepLastGood(const Log& log) {
  const std::lock_guard load_lock(load_mutex_);
  if (options_.copy.empty() || !good_text_) return;
  if (platform::ReadWholeFile(options_.copy, kPolicySizeLimit) != good_text_) {
    const std::string failure = platform::ReplaceFile(options_.copy, *good_text_);
    if (!failure.empty()) {
      log.e(L"%s: %s", L"PolicySource::KeepLastGood", String::UTF8ToUTF16(failure));
      return;
    }
  }
  good_text_.reset();
}

template <typename Document>
void PolicySource<Document>::FallBackToLastGood(const Log& log) {
  constexpr const wchar_t* kOperation = L"PolicySource::FallBackToLastGood";
  {
    const std::lock_guard lock(mutex_);
    if (in_force_ != nullptr || options_.copy.empty() || IsAbsent(options_.copy)) return;
  }
  std::string text;
  Document document = Read(options_.copy, text);
  LogProblems(log, kOperation, options_.copy, document.problems);
  if (!document.policy) return;
  Enforce(std::move(*document.policy));
  log.i(L"%s: the last good policy is in force: %s", kOperation, WidePath(options_.copy));
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
