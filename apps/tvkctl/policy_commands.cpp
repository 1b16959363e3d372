#include "apps/tvkctl/policy_commands.h"

#include <algorithm>
#include <array>
#include <istream>
#include <ostream>
#include <system_error>
#include <utility>

#include "apps/exit_code.h"
#include "apps/tvkctl/output.h"
#include "apps/tvkctl/policy_difference.h"
#include "client/policy/policy_apply.h"
#include "client/records/flowing_text.h"
#include "client/text/string.h"
#include "core/dataset_decision.h"
#include "platform/files.h"

namespace {

using TVK::String;

// A file's name may be any bytes, but what is shown is UTF-8.
std::string WellFormed(const std::string& text) {
  return String::UTF16ToUTF8(String::UTF8ToUTF16(text));
}

std::string Shown(const std::string& name) {
  return WellFormed(name);
}

std::string Shown(const std::filesystem::path& file) {
  return WellFormed(platform::PathToUtf8(file));
}

std::string ProblemLine(const TVK::PolicyProblem& problem, std::size_t width = kUnbroken) {
  TVK::FlowingText line(width);
  line.SetIndent(9);  // where the message begins
  line.NewLine(2);
  line.AddColumn(problem.fatal ? "fatal" : "error", 5);
  line.AddWord(problem.path.empty() ? problem.message : problem.path + ": " + problem.message);
  return line.Finish();
}

constexpr std::size_t kSettingIndent = 16;

std::string SettingLine(const TVK::SettingReading& setting, std::size_t width) {
  TVK::FlowingText line(width);
  line.SetIndent(kSettingIndent + 2);
  line.NewLine(kSettingIndent);
  line.AddColumn(String::UTF16ToUTF8(setting.key), 24);
  line.AddColumn(String::UTF16ToUTF8(setting.value_in_force), 9);
  const std::string origin = setting.from_policy ? "policy" : "default";
  line.AddWord(setting.reason.empty() ? origin : origin + ':');
  if (!setting.reason.empty()) line.AddWord(String::UTF16ToUTF8(setting.reason));
  if (!setting.meaning.empty()) line.AddWord('(' + String::UTF16ToUTF8(setting.meaning) + ')');
  return line.Finish();
}

std::string DatasetLine(const DatasetCheck& dataset, std::size_t width) {
  TVK::FlowingText line(width);
  line.SetIndent(kSettingIndent);
  line.AddColumn(dataset.why, kSettingIndent - 2);
  line.AddColumn(String::UTF16ToUTF8(dataset.name), 24);
  line.AddColumn(String::UTF16ToUTF8(dataset.id), 0);
  if (dataset.path.empty()) line.AddColumn("(always runs, not listed)", 0);
  if (dataset.runs() && !dataset.collects) line.AddColumn("(collects nothing yet)", 0);
  if (dataset.runs() && dataset.by_user_agent) line.AddColumn("(while somebody is logged on; Windows)", 0);
  if (!dataset.detail.empty()) line.AddColumn('(' + String::UTF16ToUTF8(dataset.detail) + ')', 0);
  return line.Finish();
}

std::string Heading(const std::string& file, const CheckedDevice& device) {
  return device.name.empty() ? file : file + " for " + device.name;
}

void WriteText(const std::string& heading, const PolicyReport& report, std::size_t width, std::ostream& out) {
  out << heading;
  if (!report.scope.empty()) out << ": scope " << String::UTF16ToUTF8(report.scope);
  out << '\n';
  for (const std::string& remark : report.remarks)
    out << TVK::HarmlessText(remark) << '\n';
  for (const DatasetCheck& dataset : report.datasets) {
    out << DatasetLine(dataset, width);
    for (const TVK::SettingReading& setting : dataset.settings)
      out << SettingLine(setting, width);
  }
  if (report.valid()) {
    out << "no problems\n";
    return;
  }
  out << report.problem_count << (report.problem_count == 1 ? " problem\n" : " problems\n");
  for (const TVK::PolicyProblem& problem : report.problems)
    out << ProblemLine(problem, width);
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
  value["by_user_agent"] = dataset.by_user_agent;
  value["settings"] = Json::arrayValue;
  for (const TVK::SettingReading& setting : dataset.settings)
    value["settings"].append(ToJson(setting));
  return value;
}

Json::Value ToJson(const PolicyReport& report) {
  Json::Value value;
  value["scope"] = String::UTF16ToUTF8(report.scope);
  value["valid"] = report.valid();
  for (const std::string& remark : report.remarks)
    value["remarks"].append(TVK::HarmlessText(remark));
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
  return value;
}

constexpr std::array<std::pair<const char*, std::vector<std::wstring> PolicyDifference::*>, 3> kDifferences = {{
    {"starts", &PolicyDifference::starts},
    {"stops", &PolicyDifference::stops},
    {"changes", &PolicyDifference::changes},
}};

// Which machine is compared for: what a filter keeps out of this one may begin on another.
std::string Heading(const std::string& file, const CheckedDevice& device, const PolicyDifference& /*found*/) {
  return Heading(file, device) + (device.name.empty() ? " for this machine (--facts names others)" : "");
}
std::string Heading(const std::string& file, const CheckedDevice& device, const PolicyReport& /*found*/) {
  return Heading(file, device);
}

void WriteText(const std::string& heading, const PolicyDifference& difference, std::size_t width, std::ostream& out) {
  out << heading << (difference.empty() ? ": nothing changes\n" : "\n");
  for (const auto& [kind, names] : kDifferences) {
    for (const std::wstring& name : difference.*names) {
      TVK::FlowingText line(width);
      line.AddColumn(kind, 7);
      line.AddWord(String::UTF16ToUTF8(name));
      out << line.Finish();
    }
  }
}

Json::Value ToJson(const PolicyDifference& difference) {
  Json::Value value;
  for (const auto& [kind, names] : kDifferences) {
    value[kind] = Json::arrayValue;
    for (const std::wstring& name : difference.*names)
      value[kind].append(String::UTF16ToUTF8(name));
  }
  return value;
}

// What was found for each device; one without a name is the object itself.
template <typename Found>
void WriteFound(const PolicyCheckOptions& options, const std::vector<Found>& found, std::ostream& out) {
  const std::string file = Shown(options.policy.name);
  if (!options.json) {
    for (std::size_t i = 0; i < found.size(); ++i)
      WriteText(Heading(file, options.devices[i], found[i]), found[i], options.width, out);
    return;
  }
  Json::Value value;
  if (options.devices.front().name.empty()) {
    value = ToJson(found.front());
  } else {
    for (std::size_t i = 0; i < found.size(); ++i) {
      Json::Value& device = value["devices"].append(ToJson(found[i]));
      device["facts"] = Shown(options.devices[i].name);
    }
  }
  value["file"] = file;
  tvkctl::WriteJsonLine(value, out);
}

// As the service has it that the content is of: narrowed, and with what a filter does not stop.
PolicyReport CheckFor(const CheckedDevice& device, const PolicyCheckOptions& options, const PolicyContent& content,
                      const TVK::DatasetTable& table) {
  const EligibilityFilter filter(device.traits);
  PolicyReport report = CheckPolicy(*content.text, options.scope, table, filter);
  report.remarks = content.remarks;
  if (!options.scope && TVK::IsNarrowerScope(content.scope, report.scope)) {
    report.remarks.push_back("the service narrows the policy's scope \"" + String::UTF16ToUTF8(report.scope) +
                             "\" to \"" + String::UTF16ToUTF8(content.scope) + '"');
    std::vector<std::string> remarks = std::move(report.remarks);
    report = CheckPolicy(*content.text, content.scope, table, filter);
    report.remarks = std::move(remarks);
  }
  if (!device.name.empty()) return report;  // another machine's
  for (DatasetCheck& dataset : report.datasets) {
    const bool filtered = dataset.why == TVK::ReasonName(TVK::DecisionReason::kNotApplicable);
    if (filtered && content.running.contains(dataset.id)) dataset.detail += L"; it runs until the service starts anew";
  }
  return report;
}

std::vector<PolicyReport> CheckAll(const PolicyCheckOptions& options, const PolicyCheckOptions::Document& document,
                                   const TVK::DatasetTable& table) {
  const PolicyContent content = document.read();
  std::vector<PolicyReport> reports;
  for (const CheckedDevice& device : options.devices) {
    if (content.text) {
      reports.push_back(CheckFor(device, options, content, table));
    } else {
      PolicyReport& report = reports.emplace_back();
      report.problems.push_back({{}, content.problem, true});
      report.problem_count = 1;
    }
  }
  return reports;
}

// The exit code.
int WriteDifferences(const PolicyCheckOptions& options, const std::vector<PolicyReport>& reports,
                     const TVK::DatasetTable& table, std::ostream& out, std::ostream& err) {
  PolicyCheckOptions as_it_is = options;
  as_it_is.scope.reset();
  const std::vector<PolicyReport> before = CheckAll(as_it_is, *options.against, table);
  for (const auto& [document, report] :
       {std::pair(&options.policy, &reports.front()), {&*options.against, &before.front()}}) {
    bool fatal = false;
    for (const TVK::PolicyProblem& problem : report->problems) {
      err << "tvkctl: " << Shown(document->name) << ": " << ProblemLine(problem);
      fatal = fatal || problem.fatal;
    }
    if (fatal) return kExitWrongConfiguration;
  }
  std::vector<PolicyDifference> differences;
  for (std::size_t i = 0; i < reports.size(); ++i)
    differences.push_back(Compare(before[i], reports[i]));
  WriteFound(options, differences, out);
  if (!reports.front().valid()) return kExitWrongConfiguration;
  const bool starts =
      std::ranges::any_of(differences, [](const PolicyDifference& each) { return !each.starts.empty(); });
  return starts ? kExitStarts : kExitOk;
}

}  // namespace

PolicyContent ReadPolicyFile(const std::filesystem::path& file) {
  std::error_code ignored;
  if (std::filesystem::is_directory(file, ignored)) {
    return {.problem = Shown(file) + ": this is a folder, not a policy file"};
  }
  platform::FileProblem why;
  std::optional<std::string> text = platform::ReadWholeFile(file, TVK::kPolicySizeLimit, &why);
  return {.text = std::move(text), .problem = WellFormed(why.text)};
}

PolicyCheckOptions::Document PolicyFile(const std::filesystem::path& file, std::istream& input) {
  if (file == "-") {
    return {"standard input", [&input] {
              std::string text(TVK::kPolicySizeLimit + 1, '\0');
              input.read(text.data(), static_cast<std::streamsize>(text.size()));
              text.resize(static_cast<std::size_t>(input.gcount()));
              return PolicyContent{.text = std::move(text)};
            }};
  }
  return {platform::PathToUtf8(file), [file] { return ReadPolicyFile(file); }};
}

int RunPolicyCheck(const PolicyCheckOptions& options, const TVK::DatasetTable& table, std::ostream& out,
                   std::ostream& err) {
  if (options.scope && !TVK::IsTelemetryScope(*options.scope)) {
    err << "tvkctl: --scope: \"" << String::UTF16ToUTF8(*options.scope)
        << "\" is no scope: none, basic, enhance and full are\n";
    return kExitWrongCommandLine;
  }
  const std::vector<PolicyReport> reports = CheckAll(options, options.policy, table);
  if (options.against) return WriteDifferences(options, reports, table, out, err);
  WriteFound(options, reports, out);
  return reports.front().valid() ? kExitOk : kExitWrongConfiguration;
}

int RunPolicySchema(std::ostream& out) {
  out << TVK::TelemetryPolicySchema();
  return kExitOk;
}

int RunPolicyApply(const PolicyApplyOptions& options, const TVK::DatasetTable& table, std::ostream& out,
                   std::ostream& err) {
  const PolicyContent content = ReadPolicyFile(options.file);
  if (!content.text) {
    err << "tvkctl: " << content.problem << '\n';
    return kExitWrongConfiguration;
  }
  const PolicyReport report = CheckPolicy(*content.text, std::nullopt, table, EligibilityFilter(options.device));
  if (!report.valid()) err << Shown(options.file) << '\n';
  for (const TVK::PolicyProblem& each : report.problems)
    err << ProblemLine(each);
  const TVK::PolicyApplied result = TVK::ApplyTelemetryPolicy(*content.text, options.target);
  if (result.applied) {
    out << Shown(options.target) << " holds the policy now\n";
    return kExitOk;
  }
  if (result.failure.empty()) return kExitWrongConfiguration;
  err << "tvkctl: " << WellFormed(result.failure) << '\n';
  return kExitFailed;
}
