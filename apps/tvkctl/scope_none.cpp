#include "apps/tvkctl/scope_none.h"

#include <optional>
#include <string_view>

#include "client/policy/policy_apply.h"
#include "client/policy/policy_document.h"
#include "platform/files.h"

namespace tvkctl {
namespace {

constexpr std::string_view kNothing = R"({"telemetryScope": "none", "datasets": []})";

bool HasScopeNone(std::string_view text) {
  const std::optional<TelemetryPolicy> policy = TVK::ParseTelemetryPolicy(text).policy;
  return policy && policy->telemetry_scope == L"none";
}

// The document with the value of its first "telemetryScope" replaced.
std::string WithScopeNone(const std::string& text) {
  constexpr std::string_view kKey = "\"telemetryScope\"";
  constexpr std::string_view kBlanks = " \t\r\n";
  std::size_t at = text.find(kKey);
  if (at == text.npos) return text;
  at = text.find_first_not_of(kBlanks, at + kKey.size());
  if (at == text.npos || text[at] != ':') return text;
  at = text.find_first_not_of(kBlanks, at + 1);
  if (at == text.npos || text[at] != '"') return text;
  const std::size_t end = text.find('"', at + 1);
  return end == text.npos ? text : text.substr(0, at) + "\"none\"" + text.substr(end + 1);
}

}  // namespace

std::string SetScopeNone(const std::filesystem::path& file) {
  platform::FileProblem problem;
  const std::optional<std::string> text = platform::ReadWholeFile(file, TVK::kPolicySizeLimit, &problem);
  if (!text && problem.fault == platform::FileFault::kAbsent) return {};
  if (!text && problem.fault == platform::FileFault::kUnreadable) return problem.text;
  // A name that was mistyped is not to cost a file.
  constexpr std::string_view kBlanks = " \t\r\n";
  const bool blank = text && text->find_first_not_of(kBlanks) == text->npos;
  if (!blank && (!text || text->find("\"telemetryScope\"") == text->npos)) {
    return platform::PathToUtf8(file) + " is no policy, it is left as it is";
  }
  std::string none = WithScopeNone(*text);
  if (!HasScopeNone(none)) none = kNothing;
  return TVK::ApplyTelemetryPolicy(none, file).failure;
}

}  // namespace tvkctl
