// Whether a filter of the policy admits this device.
#pragma once

#include <string>

#include "client/policy/telemetry_policy.h"

/// The facts that filters look at.
struct DeviceTraits {
  std::wstring model;
  std::wstring manufacturer;
  std::wstring brand;
  std::wstring os_name;
  std::wstring os_version;
};

class EligibilityFilter {
 public:
  explicit EligibilityFilter(DeviceTraits traits) : traits_(std::move(traits)) {}

  /// True when every condition of `filter` holds for the device. A fact of the device that is not known fails a
  /// condition on it. Any thread.
  bool IsApplicable(const ApplicabilityFilter& filter) const;

 private:
  const DeviceTraits traits_;
};
