#include "apps/tvkctl/policy_check.h"

#include <algorithm>

#include "client/text/string.h"
#include "core/dataset_decision.h"
#include "core/normalised_policy.h"

namespace {

using TVK::String;

// One run over the policy's datasets; fills the report.
class Checker {
 public:
  Checker(const TelemetryPolicy& document, const TVK::NormalisedPolicy& policy, const EligibilityFilter& device,
          PolicyReport& report, TVK::ProblemList& problems)
      : document_(document), policy_(policy), device_(device), report_(report), problems_(problems) {}

  void Run(const TVK::DatasetTable& table) {
    for (const TVK::PolicyFinding& finding : policy_.findings)
      AddProblem(finding.path, finding.message);
    for (const TVK::PolicyEntry& entry : policy_.entries)
      report_.datasets.push_back(Check(entry));
    for (const TVK::Dataset& known : table.datasets()) {
      const bool unlisted =
          known.row.rule == TVK::DatasetRule::kAlways && policy_.SearchUpdatedConfig(known.row.id) == nullptr;
      if (unlisted) report_.datasets.push_back(Check({TVK::EntryMeaning::kCounts, &known, {}, {}}));
    }
  }

 private:
  DatasetCheck Check(const TVK::PolicyEntry& entry) {
    DatasetCheck check;
    check.id = entry.values.id;
    check.name = entry.values.name;
    check.path = entry.path;
    if (entry.meaning != TVK::EntryMeaning::kCounts) {
      check.why = TVK::MeaningName(entry.meaning);
      return check;
    }
    const TVK::DatasetRow& row = entry.dataset->row;
    const TVK::DatasetDecision decision =
        TVK::Decide(row, &entry.values, policy_, policy_.scope, device_, TVK::DecisionMoment::kStart);
    check.id = row.id;
    check.name = row.name;
    check.why = TVK::ReasonName(decision.reason);
    check.detail = TVK::Explain(decision, row, policy_.scope);
    check.collects = entry.dataset->collects;
    check.by_user_agent = row.rule == TVK::DatasetRule::kUserProcess;
    ReadSettings(*entry.dataset, check);
    return check;
  }

  void ReadSettings(const TVK::Dataset& known, DatasetCheck& check) {
    const DataSet* const source = document_.FindSettings(std::wstring(known.row.id));
    const TVK::SettingTexts settings = source == nullptr ? TVK::SettingTexts() : source->settings;
    if (known.read_settings) {
      check.settings = known.read_settings(settings);
    } else if (known.collects) {
      TVK::AddUnknownSettings(settings, check.settings);
    } else {
      for (const auto& [key, text] : settings) {
        check.settings.push_back(
            {key, text, true, L"the dataset collects nothing yet and reads no setting", false, {}});
      }
    }
    for (const TVK::SettingReading& reading : check.settings) {
      if (!reading.mistake) continue;
      const auto place =
          std::ranges::find_if(document_.datasets, [&](const DataSet& entry) { return &entry == source; });
      const auto index = static_cast<std::size_t>(std::distance(document_.datasets.begin(), place));
      AddProblem(policy_.entries[index].path + ".settings." + String::UTF16ToUTF8(reading.key),
                 reading.reason + L"; in force: " + reading.value_in_force);
    }
  }

  void AddProblem(const std::string& path, const std::wstring& message) {
    problems_.Add(TVK::ProblemList::kBehind, path, String::UTF16ToUTF8(message), false);
  }

  const TelemetryPolicy& document_;
  const TVK::NormalisedPolicy& policy_;
  const EligibilityFilter& device_;
  PolicyReport& report_;
  TVK::ProblemList& problems_;
};

}  // namespace

PolicyReport CheckPolicy(std::string_view json, const std::optional<std::wstring>& scope,
                         const TVK::DatasetTable& table, const EligibilityFilter& device) {
  TVK::ProblemList problems;
  PolicyReport report;
  if (const std::optional<TelemetryPolicy> document = TVK::ReadTelemetryPolicy(json, problems)) {
    TVK::NormalisedPolicy policy = TVK::Normalise(*document, table);
    policy.scope = report.scope = scope.value_or(policy.scope);
    report.settings = document->settings;
    Checker(*document, policy, device, report, problems).Run(table);
  }
  report.problem_count = problems.count();
  report.problems = problems.Take();
  return report;
}
