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

std::map<std::wstring, std::wstring> Settings(const DatasetCheck& dataset) {
  std::map<std::wstring, std::wstring> settings;
  for (const TVK::SettingReading& reading : dataset.settings)
    settings[reading.key] = reading.value_in_force;
  return settings;
}

}  // namespace

PolicyDifference Compare(const PolicyReport& before, const PolicyReport& after) {
  PolicyDifference difference;
  if (before.scope != after.scope) difference.changes.push_back(L"scope " + before.scope + L" -> " + after.scope);
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
    std::map<std::wstring, std::wstring> old_settings = Settings(*former->second);
    for (const auto& [key, value] : Settings(*dataset)) {
      const std::wstring& old_value = old_settings.try_emplace(key, L"none").first->second;
      if (old_value != value) difference.changes.push_back(name + L": " + key + L" " + old_value + L" -> " + value);
    }
  }
  return difference;
}
