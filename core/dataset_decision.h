// The one rule by which a dataset runs and writes, or does not.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "client/policy/eligibility_filter.h"
#include "core/normalised_policy.h"
#include "framework/dataset_row.h"

namespace TVK {

/// In the order in which they are looked at.
enum class DecisionReason {
  kRuns,
  kNotListed,
  kDisabled,
  kPolicyNotApplicable,  ///< The filter of the policy as a whole does not admit the device.
  kNotApplicable,        ///< The dataset's own filter does not.
  kScope,                ///< The scope is not among those of the dataset's row.
};

/// "runs", "not listed", "disabled", "not applicable" (for both filters) or "scope".
std::string_view ReasonName(DecisionReason reason);

struct DatasetDecision {
  DecisionReason reason = DecisionReason::kRuns;
  std::optional<UnmetCondition> unmet = {};  ///< Which condition of the filter, and which fact; for the two filters.

  bool runs() const { return reason == DecisionReason::kRuns; }
};

/// What the answer is wanted for. Filters are about devices, which do not change while the service runs: they decide
/// when a dataset starts, and what runs is not stopped by one.
enum class DecisionMoment {
  kServiceStart,  ///< It is to start with the service; one of the rule kStartsAtAnyScope does so whatever the scope.
  kStart,         ///< It is to start while the service runs.
  kRunning,       ///< It runs: may it go on, observe and write?
};

/// Whether the dataset of `row` runs. `entry`: of the policy, null when it is not listed. `scope`: the one in force,
/// any case; `policy` may be newer than it, and a consent that either of them withdraws is withdrawn. Datasets that run
/// always, and the device context, which no policy switches, run; one whose row names no scopes runs in all but "none".
/// Pure; any thread.
DatasetDecision Decide(const DatasetRow& row, const DataSet* entry, const NormalisedPolicy& policy,
                       const std::wstring& scope, const EligibilityFilter& device, DecisionMoment moment);

/// Where a filter or the scope keeps the dataset of `row` from running: which condition, and which fact it met, for
/// people; else empty. `scope`: the one that was decided by.
std::wstring Explain(const DatasetDecision& decision, const DatasetRow& row, const std::wstring& scope);

/// The part of the decision that lies in the entry, whichever dataset it is for: kRuns, kDisabled or one of the
/// filters.
DatasetDecision DecideEntry(const DataSet& entry, const NormalisedPolicy& policy, const EligibilityFilter& device,
                            DecisionMoment moment);

}  // namespace TVK
