#include "core/dataset_decision.h"

#include "client/text/string.h"

namespace TVK {

namespace {

// Not a substring search with the text as it came: an empty one would be found everywhere.
bool Supports(const DatasetRow& row, const std::wstring& scope) {
  if (row.scopes.empty()) return NormalisedScope(scope) != L"none";
  return String::CaseInsesitiveFind(std::wstring(row.scopes), NormalisedScope(scope));
}

}  // namespace

std::string_view ReasonName(DecisionReason reason) {
  switch (reason) {
    case DecisionReason::kRuns:
      return "runs";
    case DecisionReason::kNotListed:
      return "not listed";
    case DecisionReason::kDisabled:
      return "disabled";
    case DecisionReason::kPolicyNotApplicable:
    case DecisionReason::kNotApplicable:
      return "not applicable";
    case DecisionReason::kScope:
      return "scope";
  }
  return "";
}

DatasetDecision DecideEntry(const DataSet& entry, const NormalisedPolicy& policy, const EligibilityFilter& device,
                            DecisionMoment moment) {
  if (!entry.enabled) return {DecisionReason::kDisabled};
  if (moment == DecisionMoment::kRunning) return {};
  if (auto unmet = device.FindUnmet(policy.applicability)) return {DecisionReason::kPolicyNotApplicable, unmet};
  if (auto unmet = device.FindUnmet(entry.applicability)) return {DecisionReason::kNotApplicable, unmet};
  return {};
}

DatasetDecision Decide(const DatasetRow& row, const DataSet* entry, const NormalisedPolicy& policy,
                       const std::wstring& scope, const EligibilityFilter& device, DecisionMoment moment) {
  switch (row.rule) {
    case DatasetRule::kAlways:
    case DatasetRule::kDeviceContext:
      return {};
    case DatasetRule::kApplication:
    case DatasetRule::kByScope:
    case DatasetRule::kStartsAtAnyScope:
    case DatasetRule::kUserProcess:
      break;
  }
  if (entry == nullptr) return {DecisionReason::kNotListed};
  if (const DatasetDecision by_entry = DecideEntry(*entry, policy, device, moment); !by_entry.runs()) return by_entry;
  if (row.rule == DatasetRule::kStartsAtAnyScope && moment == DecisionMoment::kServiceStart) return {};
  if (!Supports(row, scope) || !Supports(row, policy.scope)) return {DecisionReason::kScope};
  return {};
}

std::wstring Explain(const DatasetDecision& decision, const DatasetRow& row, const std::wstring& scope) {
  if (decision.reason == DecisionReason::kScope) {
    return L"\"" + scope + L"\" is not among " +
           (row.scopes.empty() ? L"basic, enhance, full" : std::wstring(row.scopes));
  }
  if (!decision.unmet) return L"";
  std::wstring text = decision.reason == DecisionReason::kPolicyNotApplicable ? L"the policy's" : L"the dataset's";
  text.append(L" filter: ").append(decision.unmet->trait);
  text += decision.unmet->fact.empty() ? L" is not known" : L" is " + decision.unmet->fact;
  return text + L", wanted " + decision.unmet->wanted;
}

}  // namespace TVK
