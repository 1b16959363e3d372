#include "apps/tvkctl/policy_difference.h"

#include <map>

namespace {

// By name: an entry that does not count runs nothing.
std::map<std::wstring, const DatasetCheck*> Running(const PolicyReport& report) {
  std::map<std::wstring, const DatasetCheck*> running;
  for (const DatasetCheck& dataset : report.datasets) {
    if (dataset.runs()) running.emplace(dataset.name, &dataset);
  }
  return running;
}

using SettingValues = std::map<std::wstring, std::wstring>;

SettingValues Settings(const DatasetCheck& dataset) {
  SettingValues settings;
  for (const TVK::SettingReading& reading : dataset.settings)
    settings[reading.key] = reading.value_in_force;
  return settings;
}

// What of `before` is another value in `after`, in the order of the keys; "none" stands for one that is not there.
void AddChanges(const std::wstring& of_what, SettingValues before, SettingValues after,
                std::vector<std::wstring>& changes) {
  for (const auto& [key, value] : before)
    after.try_emplace(key, L"none");
  for (const auto& [key, value] : after) {
    const std::wstring& old_value = before.try_emplace(key, L"none").first->second;
    if (old_value != value) changes.push_back(of_what + L": " + key + L" " + old_value + L" -> " + value);
  }
}

}  // namespace

PolicyDifference Compare(const PolicyReport& before, const PolicyReport& after) {
  PolicyDifference difference;
  if (before.scope != after.scope) difference.changes.push_back(L"scope " + before.scope + L" -> " + after.scope);
  AddChanges(L"the policy", before.settings, after.settings, difference.changes);
  const auto ran = Running(before);
  const auto runs = Running(after);
  for (const auto& [name, dataset] : ran) {
    if (!runs.contains(name)) difference.stops.push_back(name);
  }
  for (const auto& [name, dataset] : runs) {
    const auto former = ran.find(name);
    if (former == ran.end()) {
      difference.starts.push_back(name);
      continue;
    }
    AddChanges(name, Settings(*former->second), Settings(*dataset), difference.changes);
  }
  return difference;
}
