#include "core/dataset_table.h"

#include <algorithm>

#include "client/text/string.h"

const Dataset* DatasetTable::FindByName(std::wstring_view name) const {
  const auto found = std::ranges::find(datasets_, name, [](const Dataset& dataset) { return dataset.row.name; });
  return found == datasets_.end() ? nullptr : &*found;
}

const Dataset* DatasetTable::FindForPolicy(const std::wstring& id, const std::wstring& name) const {
  const std::wstring upper = TVK::String::ToUpper(id);
  const Dataset* dataset = FindByName(name);
  if (dataset == nullptr || upper.find(dataset->row.id) == std::wstring::npos) return nullptr;
  const DatasetRule rule = dataset->row.rule;
  const bool switched_by_policy =
      rule == DatasetRule::kByScope || rule == DatasetRule::kStartsAtAnyScope || rule == DatasetRule::kUserProcess;
  return switched_by_policy ? dataset : nullptr;
}

const Dataset* DatasetTable::FindByRule(DatasetRule rule) const {
  const auto found = std::ranges::find(datasets_, rule, [](const Dataset& dataset) { return dataset.row.rule; });
  return found == datasets_.end() ? nullptr : &*found;
}
