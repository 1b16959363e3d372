#include "apps/tvkctl/scope_none.h"

#include <json/reader.h>

#include <memory>
#include <string_view>

#include "client/policy/policy_apply.h"
#include "client/policy/policy_document.h"
#include "platform/files.h"

namespace tvkctl {
namespace {

constexpr char kScope[] = "telemetryScope";
constexpr std::string_view kNone = "\"none\"";
constexpr std::string_view kNothing = R"({"telemetryScope": "none", "datasets": []})";

bool HasScopeNone(std::string_view text) {
  const std::optional<TelemetryPolicy> policy = TVK::ParseTelemetryPolicy(text).policy;
  return policy && policy->telemetry_scope == L"none";
}

// The document with another value of the scope; nothing where it is no policy.
std::optional<std::string> WithScopeNone(const std::string& text) {
  Json::Value document;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  if (!reader->parse(text.data(), text.data() + text.size(), &document, nullptr)) return std::nullopt;
  if (!document.isObject() || !document.isMember(kScope)) return std::nullopt;
  const Json::Value& scope = document[kScope];
  const auto begin = static_cast<std::size_t>(scope.getOffsetStart());
  const auto end = static_cast<std::size_t>(scope.getOffsetLimit());
  return text.substr(0, begin).append(kNone).append(text, end);
}

}  // namespace

ScopeNonePlan PlanScopeNone(const std::filesystem::path& file) {
  platform::FileProblem problem;
  const std::optional<std::string> text = platform::ReadWholeFile(file, TVK::kPolicySizeLimit, &problem);
  if (!text && problem.fault == platform::FileFault::kAbsent) return {.absent = true};
  if (!text && problem.fault == platform::FileFault::kUnreadable) return {.problem = problem.text};
  constexpr std::string_view kBlanks = " \t\r\n";
  if (text && text->find_first_not_of(kBlanks) == text->npos) return {.text = std::string(kNothing)};
  const std::optional<std::string> changed = text ? WithScopeNone(*text) : std::nullopt;
  if (changed && HasScopeNone(*changed)) return {.text = *changed};
  if (!text || (!changed && text->find("\"telemetryScope\"") == text->npos)) {
    return {.problem = platform::PathToUtf8(file) + " is no policy, it is left as it is"};
  }
  return {.text = std::string(kNothing), .replaced = text};
}

std::filesystem::path ReplacedPolicy(const std::filesystem::path& file) {
  std::filesystem::path kept = file;
  return kept += ".replaced";
}

std::string PutScopeNone(const std::filesystem::path& file, const ScopeNonePlan& plan) {
  if (plan.absent) return {};
  if (plan.replaced) {
    if (std::string problem = platform::ReplaceFile(ReplacedPolicy(file), *plan.replaced); !problem.empty()) {
      return problem;
    }
  }
  const TVK::PolicyApplied applied = TVK::ApplyTelemetryPolicy(plan.text, file);
  return applied.applied ? std::string() : applied.failure;
}

}  // namespace tvkctl
