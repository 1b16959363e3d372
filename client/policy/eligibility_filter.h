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

/// A condition of a filter that a device does not meet.
struct UnmetCondition {
  std::string_view condition;  ///< Its key in the policy, "models"; static.
  std::wstring fact;           ///< What the device has there; empty: it is not known.
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
