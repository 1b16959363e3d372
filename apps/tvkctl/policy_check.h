// What a telemetry policy means on this device: which datasets run and why not, which settings are in force, and every
// mistake with its place in the document.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/policy/eligibility_filter.h"
#include "client/policy/policy_document.h"
#include "core/dataset_table.h"
#include "framework/dataset_settings.h"

/// Why a dataset of the policy runs or does not.
enum class DatasetState {
  kRuns,
  kUnknownId,
  kNotSwitched,  ///< Of the application events or the device context, which no policy switches.
  kNameMismatch,
  kDuplicate,
  kDisabled,
  kNotApplicable,
  kScope,
};

/// "runs", "unknown id", "not switched", "name mismatch", "duplicate", "disabled", "not applicable" or "scope".
std::string_view StateName(DatasetState state);

struct DatasetCheck {
  std::wstring id;  ///< As in the policy.
  std::wstring name;
  std::string path;  ///< "datasets[3]"; empty for one that runs without being listed.
  DatasetState state = DatasetState::kRuns;
  bool collects = false;
  std::vector<SettingReading> settings;  ///< In force for the dataset, whichever entry they stand in.

  bool runs() const { return state == DatasetState::kRuns; }
};

struct PolicyReport {
  std::wstring scope;  ///< The scope that was checked; empty when the document has none that can be used.
  std::vector<PolicyProblem> problems;  ///< At most 100, and one that counts the rest.
  std::size_t problem_count = 0;        ///< Of all.
  std::vector<DatasetCheck> datasets;   ///< In the order of the policy, then those that run unlisted.

  /// No mistake of any kind.
  bool valid() const { return problems.empty(); }
};

/// Checks the document for a device with the given traits, as the component with these datasets reads it. `scope`, one
/// of the telemetry scopes, takes the place of the policy's. A dataset that is disabled, not applicable or outside of
/// the scope is no mistake.
PolicyReport CheckPolicy(std::string_view json, const std::optional<std::wstring>& scope, const DatasetTable& table,
                         const EligibilityFilter& device);
