#include "client/policy/config_agent.h"

#include <system_error>

#include "client/text/string.h"
#include "platform/files.h"

namespace {

bool Differ(const TelemetryPolicy& a, const TelemetryPolicy& b) {
  return a.telemetry_scope != b.telemetry_scope || a.datasets != b.datasets || a.applicability != b.applicability ||
         a.settings != b.settings;
}

std::wstring Wide(const std::filesystem::path& path) {
  return TVK::String::UTF8ToUTF16(platform::PathToUtf8(path));
}

void LogProblems(const TVK::Log& log, const wchar_t* operation, const std::filesystem::path& file,
                 const std::vector<PolicyProblem>& problems) {
  for (const PolicyProblem& problem : problems) {
    const std::wstring path = TVK::String::UTF8ToUTF16(problem.path);
    const std::wstring message = TVK::String::UTF8ToUTF16(problem.message);
    log.e(L"%s: %s: %s%s%s", operation, Wide(file), path, path.empty() ? L"" : L": ", message);
  }
}

// The document that `file` holds, or an empty one whose problem says why it cannot be read.
template <typename Document>
Document ReadDocument(const std::filesystem::path& file, Document (*parse)(std::string_view), std::string& text) {
  std::string problem;
  std::optional<std::string> content = platform::ReadWholeFile(file, kPolicySizeLimit, &problem);
  if (!content) {
    Document unread;
    unread.problems.push_back({{}, problem, true});
    return unread;
  }
  text = std::move(*content);
  return parse(text);
}

}  // namespace

ConfigPolicyAgent::ConfigPolicyAgent(Files files) : files_(std::move(files)) {
  TVK::utility::InitLog(log_, L"ConfigPolicyAgent.log", 4);
}

PolicyLoad ConfigPolicyAgent::LoadTelemetryPolicy() {
  constexpr const wchar_t* kOperation = L"ConfigPolicyAgent::LoadTelemetryPolicy";
  const std::lock_guard load_lock(load_mutex_);
  std::string text;
  PolicyDocument document = ReadDocument(files_.telemetry_policy, ParseTelemetryPolicy, text);
  LogProblems(log_, kOperation, files_.telemetry_policy, document.problems);
  PolicyLoad load{document.policy.has_value(), false, std::move(document.problems)};
  if (load.accepted) {
    load.changed = Enforce(std::move(*document.policy));
    KeepLastGood(text);
  } else {
    FallBackToLastGood();
  }
  log_.i(L"%s: accepted = %d, changed = %d", kOperation, load.accepted, load.changed);
  return load;
}

bool ConfigPolicyAgent::Enforce(TelemetryPolicy policy) {
  auto next = std::make_shared<const TelemetryPolicy>(std::move(policy));
  const std::lock_guard lock(mutex_);
  const bool changed = telemetry_policy_ == nullptr || Differ(*telemetry_policy_, *next);
  telemetry_policy_ = std::move(next);
  return changed;
}

void ConfigPolicyAgent::KeepLastGood(const std::string& text) {
  if (files_.last_good.empty()) return;
  if (platform::ReadWholeFile(files_.last_good, kPolicySizeLimit) == text) return;
  const std::string failure = platform::ReplaceFile(files_.last_good, text);
  if (!failure.empty()) {
    log_.e(L"%s: %s", L"ConfigPolicyAgent::KeepLastGood", TVK::String::UTF8ToUTF16(failure));
  }
}

void ConfigPolicyAgent::FallBackToLastGood() {
  constexpr const wchar_t* kOperation = L"ConfigPolicyAgent::FallBackToLastGood";
  {
    const std::lock_guard lock(mutex_);
    if (telemetry_policy_ != nullptr || files_.last_good.empty()) return;
  }
  std::string text;
  PolicyDocument document = ReadDocument(files_.last_good, ParseTelemetryPolicy, text);
  LogProblems(log_, kOperation, files_.last_good, document.problems);
  if (!document.policy) return;
  Enforce(std::move(*document.policy));
  log_.i(L"%s: the last good policy is in force: %s", kOperation, Wide(files_.last_good));
}

PolicyLoad ConfigPolicyAgent::LoadTvkPolicy() {
  constexpr const wchar_t* kOperation = L"ConfigPolicyAgent::LoadTvkPolicy";
  const std::lock_guard load_lock(load_mutex_);
  TvkPolicyDocument document;
  std::error_code ignored;  // a file that cannot be looked at is then reported by the reading
  if (std::filesystem::status(files_.tvk_policy, ignored).type() == std::filesystem::file_type::not_found) {
    document.policy = TvkPolicy();
  } else {
    std::string text;
    document = ReadDocument(files_.tvk_policy, ParseTvkPolicy, text);
    LogProblems(log_, kOperation, files_.tvk_policy, document.problems);
  }
  PolicyLoad load{document.policy.has_value(), false, std::move(document.problems)};
  if (load.accepted) {
    const std::lock_guard lock(mutex_);
    load.changed = tvk_policy_ != document.policy;
    tvk_policy_ = std::move(document.policy);
  }
  log_.i(L"%s: accepted = %d, changed = %d", kOperation, load.accepted, load.changed);
  return load;
}

bool ConfigPolicyAgent::GetTelemetryPolicy(TelemetryPolicy& policy) {
  std::shared_ptr<const TelemetryPolicy> current;
  {
    const std::lock_guard lock(mutex_);
    current = telemetry_policy_;
  }
  if (current == nullptr) return false;
  policy = *current;
  return true;
}

bool ConfigPolicyAgent::GetTvkPolicy(TvkPolicy& policy) {
  const std::lock_guard lock(mutex_);
  if (!tvk_policy_) return false;
  policy = *tvk_policy_;
  return true;
}
