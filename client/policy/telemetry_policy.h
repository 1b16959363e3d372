// The telemetry policy as the component reads it: plain values, copied out of the agent.
#pragma once

#include <algorithm>
#include <list>
#include <map>
#include <string>
#include <vector>

/// Which devices something is meant for. Conditions are joined by "and"; an absent or empty one admits every device.
/// Texts are compared with ASCII case aside; '*' stands for any run of characters and '?' for one.
struct ApplicabilityFilter {
  std::vector<std::wstring> models;         ///< Any of them matches the device model.
  std::vector<std::wstring> manufacturers;  ///< Any of them matches the manufacturer.
  std::vector<std::wstring> brands;         ///< Any of them matches the brand.
  std::vector<std::wstring> os_names;       ///< Any of them matches the operating system's name.
  std::wstring os_version_min;              ///< Dotted numbers, compared part by part; the device's is at least this,
  std::wstring os_version_max;              ///< and at most this.

  bool operator==(const ApplicabilityFilter&) const = default;
};

/// One dataset of the policy.
struct DataSet {
  std::wstring id;  ///< GUID text as it stands in the policy.
  std::wstring name;
  bool enabled = true;
  ApplicabilityFilter applicability;
  std::map<std::wstring, std::wstring> settings;

  bool operator==(const DataSet&) const = default;
};

namespace TVK {

/// The one setting of a policy as a whole: "true" leaves network data unhashed.
inline constexpr wchar_t kNoHashNetworkDataSetting[] = L"No_hash_network_data";

}  // namespace TVK

class TelemetryPolicy {
 public:
  TelemetryPolicy() = default;
  TelemetryPolicy(const TelemetryPolicy&) = default;
  TelemetryPolicy(TelemetryPolicy&&) = default;
  TelemetryPolicy& operator=(const TelemetryPolicy&) = default;
  TelemetryPolicy& operator=(TelemetryPolicy&&) = default;
  virtual ~TelemetryPolicy() = default;
  bool operator==(const TelemetryPolicy&) const = default;

  std::wstring telemetry_scope = L"none";  ///< "none", "basic", "enhance" or "full", in small letters.
  std::list<DataSet> datasets;             ///< In the order of the policy.
  ApplicabilityFilter applicability;
  std::map<std::wstring, std::wstring> settings;

  /// The value of a setting of the policy as a whole, or an empty text.
  std::wstring Setting(const std::wstring& key) const {
    const auto found = settings.find(key);
    return found == settings.end() ? std::wstring() : found->second;
  }

  /// The entry whose settings are those of the dataset: the first with exactly this id, whatever its name and whether
  /// it runs. Null when there is none.
  const DataSet* FindSettings(const std::wstring& dataset_id) const {
    const auto found = std::ranges::find(datasets, dataset_id, &DataSet::id);
    return found == datasets.end() ? nullptr : &*found;
  }
};

namespace TVK {

/// The client policy: where the device belongs.
struct TvkPolicy {
  std::wstring device_path;
  std::wstring device_subscription;
  bool operator==(const TvkPolicy&) const = default;
};

}  // namespace TVK
