#include "apps/tvkctl/policy_commands.h"

#include <iomanip>
#include <ostream>
#include <system_error>

#include "apps/exit_code.h"
#include "apps/tvkctl/output.h"
#include "client/policy/policy_apply.h"
#include "client/text/string.h"
#include "platform/files.h"

namespace {

using TVK::String;

// A file's name may be any bytes, but what is shown is UTF-8.
std::string WellFormed(const std::string& text) {
  return String::UTF16ToUTF8(String::UTF8ToUTF16(text));
}

std::string Shown(const std::filesystem::path& file) {
  return WellFormed(platform::PathToUtf8(file));
}

// The content of a policy file, or nothing and a problem that names the file.
std::optional<std::string> ReadPolicyFile(const std::filesystem::path& file, std::string& problem) {
  std::error_code ignored;
  if (std::filesystem::is_directory(file, ignored)) {
    problem = Shown(file) + ": this is a folder, not a policy file";
    return std::nullopt;
  }
  platform::FileProblem why;
  std::optional<std::string> text = platform::ReadWholeFile(file, TVK::kPolicySizeLimit, &why);
  problem = WellFormed(why.text);
  return text;
}

void WriteProblem(const TVK::PolicyProblem& problem, std::ostream& out) {
  out << (problem.fatal ? "  fatal  " : "  error  ");
  if (!problem.path.empty()) out << problem.path << ": ";
  out << problem.message << '\n';
}

void WriteSetting(const TVK::SettingReading& setting, std::ostream& out) {
  out << "                " << std::left << std::setw(25) << String::UTF16ToUTF8(setting.key) << ' ' << std::setw(10)
      << String::UTF16ToUTF8(setting.value_in_force) << ' ' << (setting.from_policy ? "policy" : "default");
  if (!setting.reason.empty()) out << ": " << String::UTF16ToUTF8(setting.reason);
  if (!setting.meaning.empty()) out << " (" << String::UTF16ToUTF8(setting.meaning) << ')';
  out << '\n';
}

void WriteText(const std::string& file, const PolicyReport& report, std::ostream& out) {
  out << file;
  if (!report.scope.empty()) out << ": scope " << String::UTF16ToUTF8(report.scope);
  out << '\n';
  for (const DatasetCheck& dataset : report.datasets) {
    out << std::left << std::setw(15) << dataset.why << ' ' << std::setw(25) << String::UTF16ToUTF8(dataset.name) << ' '
        << String::UTF16ToUTF8(dataset.id);
    if (dataset.path.empty()) out << "  (always runs, not listed)";
    if (dataset.runs() && !dataset.collects) out << "  (collects nothing yet)";
    if (!dataset.detail.empty()) out << "  (" << TVK::HarmlessText(String::UTF16ToUTF8(dataset.detail)) << ')';
    out << '\n';
    for (const TVK::SettingReading& setting : dataset.settings)
      WriteSetting(setting, out);
  }
  if (report.valid()) {
    out << "no problems\n";
    return;
  }
  out << report.problem_count << (report.problem_count == 1 ? " problem\n" : " problems\n");
  for (const TVK::PolicyProblem& problem : report.problems)
    WriteProblem(problem, out);
}

Json::Value ToJson(const TVK::SettingReading& setting) {
  Json::Value value;
  value["key"] = String::UTF16ToUTF8(setting.key);
  value["value"] = String::UTF16ToUTF8(setting.value_in_force);
  value["source"] = setting.from_policy ? "policy" : "default";
  value["reason"] = String::UTF16ToUTF8(setting.reason);
  return value;
}

Json::Value ToJson(const DatasetCheck& dataset) {
  Json::Value value;
  value["id"] = String::UTF16ToUTF8(dataset.id);
  value["name"] = String::UTF16ToUTF8(dataset.name);
  value["path"] = dataset.path;
  value["runs"] = dataset.runs();
  value["why"] = std::string(dataset.why);
  value["detail"] = String::UTF16ToUTF8(dataset.detail);
  value["collects"] = dataset.collects;
  value["settings"] = Json::arrayValue;
  for (const TVK::SettingReading& setting : dataset.settings)
    value["settings"].append(ToJson(setting));
  return value;
}

void WriteJson(const std::string& file, const PolicyReport& report, std::ostream& out) {
  Json::Value value;
  value["file"] = file;
  value["scope"] = String::UTF16ToUTF8(report.scope);
  value["valid"] = report.valid();
  value["problems"] = Json::arrayValue;
  for (const TVK::PolicyProblem& problem : report.problems) {
    Json::Value& entry = value["problems"].append(Json::Value());
    entry["path"] = problem.path;
    entry["message"] = problem.message;
    entry["severity"] = problem.fatal ? "fatal" : "error";
  }
  value["datasets"] = Json::arrayValue;
  for (const DatasetCheck& dataset : report.datasets)
    value["datasets"].append(ToJson(dataset));
  tvkctl::WriteJsonLine(value, out);
}

}  // namespace

int RunPolicyCheck(const PolicyCheckOptions& options, const TVK::DatasetTable& table, std::ostream& out,
                   std::ostream& err) {
  if (options.scope && !TVK::IsTelemetryScope(*options.scope)) {
    err << "tvkctl: --scope: \"" << String::UTF16ToUTF8(*options.scope)
        << "\" is no scope: none, basic, enhance and full are\n";
    return kExitWrongCommandLine;
  }
  std::string problem;
  PolicyReport report;
  if (const std::optional<std::string> text = ReadPolicyFile(options.file, problem)) {
    report = CheckPolicy(*text, options.scope, table, EligibilityFilter(options.device));
  } else {
    report.problems.push_back({{}, problem, true});
    report.problem_count = 1;
  }
  const std::string file = Shown(options.file);
  options.json ? WriteJson(file, report, out) : WriteText(file, report, out);
  return report.valid() ? kExitOk : kExitWrongConfiguration;
}

int RunPolicySchema(std::ostream& out) {
  out << TVK::TelemetryPolicySchema();
  return kExitOk;
}

int RunPolicyApply(const PolicyApplyOptions& options, const TVK::DatasetTable& table, std::ostream& out,
                   std::ostream& err) {
  std::string problem;
  const std::optional<std::string> text = ReadPolicyFile(options.file, problem);
  if (!text) {
    err << "tvkctl: " << problem << '\n';
    return kExitWrongConfiguration;
  }
  const PolicyReport report = CheckPolicy(*text, std::nullopt, table, EligibilityFilter(options.device));
  if (!report.valid()) err << Shown(options.file) << '\n';
  for (const TVK::PolicyProblem& each : report.problems)
    WriteProblem(each, err);
  const TVK::PolicyApplied result = TVK::ApplyTelemetryPolicy(*text, options.target);
  if (result.applied) {
    out << Shown(options.target) << " holds the policy now\n";
    return kExitOk;
  }
  if (result.failure.empty()) return kExitWrongConfiguration;
  err << "tvkctl: " << WellFormed(result.failure) << '\n';
  return kExitFailed;
}
