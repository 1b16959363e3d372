#include "core/dataset_table.h"

#include <algorithm>

namespace TVK {

const Dataset* DatasetTable::FindByName(std::wstring_view name) const {
  const auto found = std::ranges::find(datasets_, name, [](const Dataset& dataset) { return dataset.row.name; });
  return found == datasets_.end() ? nullptr : &*found;
}

const Dataset* DatasetTable::FindById(std::wstring_view id) const {
  const auto found = std::ranges::find(datasets_, id, [](const Dataset& dataset) { return dataset.row.id; });
  return found == datasets_.end() ? nullptr : &*found;
}

const Dataset* DatasetTable::FindByRule(DatasetRule rule) const {
  const auto found = std::ranges::find(datasets_, rule, [](const Dataset& dataset) { return dataset.row.rule; });
  return found == datasets_.end() ? nullptr : &*found;
}

}  // namespace TVK
