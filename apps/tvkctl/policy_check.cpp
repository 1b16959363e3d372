#include "apps/tvkctl/policy_check.h"

#include <algorithm>
#include <set>

#include "client/text/string.h"

namespace {

using TVK::String;

bool HoldsId(const DataSet& entry, const DatasetRow& row) {
  return String::ToUpper(entry.id).find(row.id) != std::wstring::npos;
}

/// Whether policies may speak of the dataset at all.
bool IsListed(const DatasetRow& row) {
  return row.rule != DatasetRule::kApplication && row.rule != DatasetRule::kDeviceContext;
}

// One run over the policy's datasets; fills the report.
class Checker {
 public:
  Checker(const TelemetryPolicy& policy, const DatasetTable& table, const EligibilityFilter& device,
          PolicyReport& report, ProblemList& problems)
      : policy_(policy), table_(table), device_(device), report_(report), problems_(problems) {}

  void Run() {
    CheckPolicySettings();
    policy_applies_ = device_.IsApplicable(policy_.applicability);
    std::size_t index = 0;
    for (const DataSet& dataset : policy_.datasets)
      report_.datasets.push_back(Check(dataset, Path(index++)));
    for (const Dataset& known : table_.datasets()) {
      if (known.row.rule != DatasetRule::kAlways || seen_.contains(&known)) continue;
      DatasetCheck check{
          std::wstring(known.row.id), std::wstring(known.row.name), {}, DatasetState::kRuns, known.collects, {}};
      ReadSettings(known, check);
      report_.datasets.push_back(std::move(check));
    }
  }

 private:
  static std::string Path(std::size_t index) { return "datasets[" + std::to_string(index) + "]"; }

  std::string PathOf(const DataSet& dataset) const {
    const auto entry = std::ranges::find_if(policy_.datasets, [&](const DataSet& other) { return &other == &dataset; });
    return Path(static_cast<std::size_t>(std::distance(policy_.datasets.begin(), entry)));
  }

  void CheckPolicySettings() {
    const auto found = policy_.settings.find(kNoHashNetworkDataSetting);
    if (found == policy_.settings.end() || found->second == L"true" || found->second == L"false") return;
    AddProblem("settings." + String::UTF16ToUTF8(kNoHashNetworkDataSetting),
               L"only true and false are known; it counts as false");
  }

  // The dataset that the entry means: one that it switches, or one that runs anyway.
  const Dataset* RowOf(const DataSet& dataset) const {
    if (const Dataset* const row = table_.FindForPolicy(dataset.id, dataset.name)) return row;
    const Dataset* const row = table_.FindByName(dataset.name);
    const bool always = row != nullptr && row->row.rule == DatasetRule::kAlways && HoldsId(dataset, row->row);
    return always ? row : nullptr;
  }

  DatasetCheck Check(const DataSet& dataset, const std::string& path) {
    DatasetCheck check{dataset.id, dataset.name, path, DatasetState::kUnknownId, false, {}};
    const Dataset* const row = RowOf(dataset);
    if (row == nullptr) {
      CheckUnmatched(dataset, check);
      return check;
    }
    const DataSet* const source = policy_.FindSettings(std::wstring(row->row.id));
    if (!seen_.insert(row).second) {
      check.state = DatasetState::kDuplicate;
      AddProblem(path + ".id", source == &dataset
                                   ? L"an earlier entry is for this dataset; of this one only the settings count"
                                   : L"an earlier entry has this id; only that one counts");
      return check;
    }
    check.collects = row->collects;
    check.state = StateOf(dataset, row->row);
    // A monitor finds its settings by the exact id, while the dataset is started by a looser comparison.
    if (source == nullptr) {
      AddProblem(path + ".id",
                 L"the settings are found only under the id as it is written: \"" + std::wstring(row->row.id) + L"\"");
    } else if (source != &dataset) {
      AddProblem(path + ".id", L"the settings in force are those of " + String::UTF8ToUTF16(PathOf(*source)) +
                                   L", the first entry with the id as it is written: \"" + std::wstring(row->row.id) +
                                   L"\"");
    }
    ReadSettings(*row, check);
    return check;
  }

  void CheckUnmatched(const DataSet& dataset, DatasetCheck& check) {
    const auto named =
        std::ranges::find_if(table_.datasets(), [&](const Dataset& known) { return HoldsId(dataset, known.row); });
    if (named == table_.datasets().end()) {
      AddProblem(check.path + ".id", L"no dataset has the id \"" + dataset.id + L"\"");
      return;
    }
    if (!IsListed(named->row)) {
      check.state = DatasetState::kNotSwitched;
      AddProblem(check.path + ".id", L"policies do not switch this dataset; the entry has no effect");
      return;
    }
    check.state = DatasetState::kNameMismatch;
    AddProblem(check.path + ".name", L"the dataset of this id is named \"" + std::wstring(named->row.name) +
                                         L"\", not \"" + dataset.name + L"\"; it does not run");
  }

  DatasetState StateOf(const DataSet& dataset, const DatasetRow& row) const {
    if (row.rule == DatasetRule::kAlways) return DatasetState::kRuns;
    if (!dataset.enabled) return DatasetState::kDisabled;
    if (!policy_applies_ || !device_.IsApplicable(dataset.applicability)) return DatasetState::kNotApplicable;
    const bool in_scope = row.rule == DatasetRule::kStartsAtAnyScope ||
                          String::CaseInsesitiveFind(std::wstring(row.scopes), report_.scope);
    return in_scope ? DatasetState::kRuns : DatasetState::kScope;
  }

  void ReadSettings(const Dataset& known, DatasetCheck& check) {
    const DataSet* const source = policy_.FindSettings(std::wstring(known.row.id));
    const SettingTexts settings = source == nullptr ? SettingTexts() : source->settings;
    if (known.read_settings) {
      check.settings = known.read_settings(settings);
    } else if (known.collects) {
      AddUnknownSettings(settings, check.settings);
    } else {
      for (const auto& [key, text] : settings) {
        check.settings.push_back(
            {key, text, true, L"the dataset collects nothing yet and reads no setting", false, {}});
      }
    }
    for (const SettingReading& reading : check.settings) {
      if (!reading.mistake) continue;
      AddProblem(PathOf(*source) + ".settings." + String::UTF16ToUTF8(reading.key),
                 reading.reason + L"; in force: " + reading.value_in_force);
    }
  }

  void AddProblem(const std::string& path, const std::wstring& message) {
    problems_.Add(ProblemList::kBehind, path, String::UTF16ToUTF8(message), false);
  }

  const TelemetryPolicy& policy_;
  const DatasetTable& table_;
  const EligibilityFilter& device_;
  PolicyReport& report_;
  ProblemList& problems_;
  bool policy_applies_ = false;
  std::set<const Dataset*> seen_;
};

}  // namespace

std::string_view StateName(DatasetState state) {
  switch (state) {
    case DatasetState::kRuns:
      return "runs";
    case DatasetState::kUnknownId:
      return "unknown id";
    case DatasetState::kNotSwitched:
      return "not switched";
    case DatasetState::kNameMismatch:
      return "name mismatch";
    case DatasetState::kDuplicate:
      return "duplicate";
    case DatasetState::kDisabled:
      return "disabled";
    case DatasetState::kNotApplicable:
      return "not applicable";
    case DatasetState::kScope:
      return "scope";
  }
  return "";
}

PolicyReport CheckPolicy(std::string_view json, const std::optional<std::wstring>& scope, const DatasetTable& table,
                         const EligibilityFilter& device) {
  ProblemList problems;
  PolicyReport report;
  if (const std::optional<TelemetryPolicy> policy = ReadTelemetryPolicy(json, problems)) {
    report.scope = scope.value_or(policy->telemetry_scope);
    Checker(*policy, table, device, report, problems).Run();
  }
  report.problem_count = problems.count();
  report.problems = problems.Take();
  return report;
}
