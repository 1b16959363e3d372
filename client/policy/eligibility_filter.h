// Whether a filter of the policy admits this device.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "client/policy/telemetry_policy.h"

namespace TVK {

/// The facts that filters look at.
struct DeviceTraits {
  std::wstring model;
  std::wstring manufacturer;
  std::wstring brand;
  std::wstring os_name;
  std::wstring os_version;
};

/// A condition of a filter that a device does not meet. Of each text that stands in the policy or the device the first
/// 64 characters, so that it can be told.
struct UnmetCondition {
  std::wstring_view trait;  ///< What it is about, "manufacturer"; static.
  std::wstring fact;        ///< What the device has there; empty: it is not known.
  std::wstring wanted;      ///< "Fabrikam*, Litware", "at least 10".
};

}  // namespace TVK

class EligibilityFilter {
 public:
  explicit EligibilityFilter(TVK::DeviceTraits traits) : traits_(std::move(traits)) {}

  /// The first condition of `filter` that does not hold for the device; nothing when all do. A fact of the device that
  /// is not known fails a condition on it. Any thread.
  std::optional<TVK::UnmetCondition> FindUnmet(const ApplicabilityFilter& filter) const;

  /// Whether every condition holds.
  bool IsApplicable(const ApplicabilityFilter& filter) const { return !FindUnmet(filter).has_value(); }

 private:
  const TVK::DeviceTraits traits_;
};
