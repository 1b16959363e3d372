// What a telemetry policy means on this device: which datasets run and why not, which settings are in force, and every
// mistake with its place in the document.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/policy/eligibility_filter.h"
#include "client/policy/policy_document.h"
#include "core/dataset_table.h"
#include "framework/dataset_settings.h"

struct DatasetCheck {
  std::wstring id;  ///< As in the policy; of a dataset that is known, as the table writes it.
  std::wstring name;
  std::string path;      ///< "datasets[3]"; empty for one that runs without being listed.
  std::string_view why;  ///< A name of an EntryMeaning or of a DecisionReason: "runs", "duplicate", "scope".
  std::wstring detail;   ///< For a filter or the scope: which condition, and which fact it met; else empty.
  bool collects = false;
  bool by_user_agent = false;                 ///< It runs only while the user agent does, in a session.
  std::vector<TVK::SettingReading> settings;  ///< In force for the dataset, whichever entry they stand in.

  bool runs() const { return why == "runs"; }
};

struct PolicyReport {
  std::wstring scope;  ///< The scope that was checked; empty when the document has none that can be used.
  std::vector<TVK::PolicyProblem> problems;       ///< At most 100, and one that counts the rest.
  std::size_t problem_count = 0;                  ///< Of all.
  std::vector<DatasetCheck> datasets;             ///< In the order of the policy, then those that run unlisted.
  std::map<std::wstring, std::wstring> settings;  ///< The policy's own, as they stand.
  std::vector<std::string> remarks;               ///< What its service says of it; CheckPolicy makes none.

  /// No mistake of any kind.
  bool valid() const { return problems.empty(); }
};

/// Checks the document for a device with the given traits, as the component with these datasets reads it: what starts
/// while it runs. `scope`, one of the telemetry scopes, takes the place of the policy's. A dataset that is disabled,
/// not applicable or outside of the scope is no mistake.
PolicyReport CheckPolicy(std::string_view json, const std::optional<std::wstring>& scope,
                         const TVK::DatasetTable& table, const EligibilityFilter& device);
