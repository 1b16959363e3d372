#include "core/normalised_policy.h"

#include <algorithm>
#include <set>

#include "client/policy/policy_document.h"
#include "client/policy/report_readers.h"
#include "client/text/nearest_text.h"
#include "client/text/string.h"

using TVK::String;

namespace {

bool HoldsId(const DataSet& entry, std::wstring_view id) {
  return String::ToUpper(entry.id).find(id) != std::wstring::npos;
}

bool IsSwitched(const TVK::DatasetRow& row) {
  return row.rule != TVK::DatasetRule::kDeviceContext;
}

TVK::PolicyEntry Interpret(const DataSet& entry, const TVK::DatasetTable& table) {
  const TVK::Dataset* const named = table.FindByName(entry.name);
  if (named != nullptr && IsSwitched(named->row) && HoldsId(entry, named->row.id)) {
    return {TVK::EntryMeaning::kCounts, named, {}, entry};
  }
  const auto holder =
      std::ranges::find_if(table.datasets(), [&](const TVK::Dataset& known) { return HoldsId(entry, known.row.id); });
  if (holder == table.datasets().end()) return {TVK::EntryMeaning::kUnknownId, nullptr, {}, entry};
  return {
      IsSwitched(holder->row) ? TVK::EntryMeaning::kNameMismatch : TVK::EntryMeaning::kNotSwitched, nullptr, {}, entry};
}

// One run over the policy's entries.
class Normaliser {
 public:
  Normaliser(const TelemetryPolicy& policy, const TVK::DatasetTable& table) : policy_(policy), table_(table) {}

  TVK::NormalisedPolicy Run() {
    result_.scope = TVK::NormalisedScope(policy_.telemetry_scope);
    if (!String::CaseInsesitiveEqual(result_.scope, policy_.telemetry_scope)) {
      result_.unknown_scope = policy_.telemetry_scope;
    }
    result_.applicability = policy_.applicability;
    const std::wstring no_hash = policy_.Setting(TVK::kNoHashNetworkDataSetting);
    result_.no_hash_network_data = no_hash == L"true";
    if (policy_.settings.contains(TVK::kNoHashNetworkDataSetting) && no_hash != L"true" && no_hash != L"false") {
      AddFinding("settings." + String::UTF16ToUTF8(TVK::kNoHashNetworkDataSetting),
                 L"only true and false are known; it counts as false");
    }
    const std::wstring readers = policy_.Setting(TVK::kReportReadersSetting);
    if (policy_.settings.contains(TVK::kReportReadersSetting) && readers != L"administrators" && readers != L"users") {
      AddFinding("settings." + String::UTF16ToUTF8(TVK::kReportReadersSetting),
                 L"only administrators and users are known; it counts as administrators");
    }
    for (const DataSet& entry : policy_.datasets)
      Take(entry);
    return std::move(result_);
  }

 private:
  static std::string Path(std::size_t index) { return "datasets[" + std::to_string(index) + "]"; }

  void Take(const DataSet& given) {
    TVK::PolicyEntry& entry = result_.entries.emplace_back(Interpret(given, table_));
    entry.path = Path(result_.entries.size() - 1);
    if (entry.dataset == nullptr) {
      ReportUnmatched(entry);
      return;
    }
    if (!seen_.insert(entry.dataset).second) entry.meaning = TVK::EntryMeaning::kDuplicate;
    ReportSettings(entry, given);
    entry.values.id = entry.dataset->row.id;
  }

  void ReportUnmatched(const TVK::PolicyEntry& entry) {
    if (entry.meaning == TVK::EntryMeaning::kUnknownId) {
      AddFinding(entry.path + ".id", L"no dataset has the id \"" + entry.values.id + L"\"" + HintOf(entry.values));
    } else if (entry.meaning == TVK::EntryMeaning::kNotSwitched) {
      AddFinding(entry.path + ".id", L"policies do not switch this dataset; the entry has no effect");
    } else {
      const auto holder = std::ranges::find_if(
          table_.datasets(), [&](const TVK::Dataset& known) { return HoldsId(entry.values, known.row.id); });
      AddFinding(entry.path + ".name", L"the dataset of this id is named \"" + std::wstring(holder->row.name) +
                                           L"\", not \"" + entry.values.name + L"\"; it does not run");
    }
  }

  // Which id was meant, by the name or by what is near.
  std::wstring HintOf(const DataSet& entry) const {
    if (const TVK::Dataset* const named = table_.FindByName(entry.name)) {
      return L"; that of " + entry.name + L" is \"" + std::wstring(named->row.id) + L"\"";
    }
    constexpr std::size_t kMostHints = 100;  // a document may be full of unknown entries
    if (result_.findings.size() >= kMostHints) return {};
    std::vector<std::wstring> names;
    for (const TVK::Dataset& known : table_.datasets())
      names.emplace_back(known.row.name);
    return TVK::DidYouMean(entry.name, names);
  }

  // A monitor finds its settings by the exact id, while the dataset is started by a looser comparison.
  void ReportSettings(const TVK::PolicyEntry& entry, const DataSet& given) {
    const std::wstring id(entry.dataset->row.id);
    const DataSet* const source = policy_.FindSettings(id);
    if (entry.meaning == TVK::EntryMeaning::kDuplicate) {
      AddFinding(entry.path + ".id", source == &given
                                         ? L"an earlier entry is for this dataset; of this one only the settings count"
                                         : L"an earlier entry has this id; only that one counts");
    } else if (source == nullptr) {
      AddFinding(entry.path + ".id", L"the settings are found only under the id as it is written: \"" + id + L"\"");
    } else if (source != &given) {
      const auto place = std::ranges::find_if(policy_.datasets, [&](const DataSet& other) { return &other == source; });
      const auto index = static_cast<std::size_t>(std::distance(policy_.datasets.begin(), place));
      AddFinding(entry.path + ".id", L"the settings in force are those of " + String::UTF8ToUTF16(Path(index)) +
                                         L", the first entry with the id as it is written: \"" + id + L"\"");
    }
  }

  void AddFinding(std::string path, std::wstring message) {
    result_.findings.push_back({std::move(path), std::move(message)});
  }

  const TelemetryPolicy& policy_;
  const TVK::DatasetTable& table_;
  TVK::NormalisedPolicy result_;
  std::set<const TVK::Dataset*> seen_;
};

}  // namespace

namespace TVK {

std::string_view MeaningName(EntryMeaning meaning) {
  switch (meaning) {
    case EntryMeaning::kCounts:
      return "";
    case EntryMeaning::kUnknownId:
      return "unknown id";
    case EntryMeaning::kNotSwitched:
      return "not switched";
    case EntryMeaning::kNameMismatch:
      return "name mismatch";
    case EntryMeaning::kDuplicate:
      return "duplicate";
  }
  return "";
}

const DataSet* NormalisedPolicy::SearchUpdatedConfig(std::wstring_view id) const {
  const auto found = std::ranges::find_if(entries, [&](const PolicyEntry& entry) {
    return entry.meaning == EntryMeaning::kCounts && entry.dataset->row.id == id;
  });
  return found == entries.end() ? nullptr : &found->values;
}

const PolicyEntry* NormalisedPolicy::FindMismatch(std::wstring_view id) const {
  const auto found = std::ranges::find_if(entries, [&](const PolicyEntry& entry) {
    return entry.meaning == EntryMeaning::kNameMismatch && HoldsId(entry.values, id);
  });
  return found == entries.end() ? nullptr : &*found;
}

std::wstring ExplainMismatch(const PolicyEntry& entry) {
  return L"its id stands beside the name \"" + entry.values.name + L"\"";
}

std::wstring NormalisedScope(const std::wstring& text) {
  const std::wstring scope = String::ToLower(text);
  return IsTelemetryScope(scope) ? scope : L"none";
}

bool IsNarrowerScope(const std::wstring& scope, const std::wstring& than) {
  constexpr std::wstring_view kFromNarrow = L"none,basic,enhance,full";
  return !scope.empty() && kFromNarrow.find(scope) < kFromNarrow.find(than);
}

NormalisedPolicy Normalise(const TelemetryPolicy& policy, const DatasetTable& table) {
  return Normaliser(policy, table).Run();
}

std::vector<const PolicyEntry*> OrderDatasets(const NormalisedPolicy& policy) {
  std::vector<const PolicyEntry*> order;
  for (const PolicyEntry& entry : policy.entries)
    order.push_back(&entry);
  std::ranges::stable_sort(
      order, {}, [](const PolicyEntry* entry) { return entry->dataset == nullptr ? 0 : entry->dataset->row.rank; });
  return order;
}

}  // namespace TVK
