// What a policy would change where another one is in force.
#pragma once

#include <string>
#include <vector>

#include "apps/tvkctl/policy_check.h"

struct PolicyDifference {
  std::vector<std::wstring> starts;   ///< Names of datasets that did not run.
  std::vector<std::wstring> stops;    ///< Of those that run no longer.
  std::vector<std::wstring> changes;  ///< "CPUEvent: ReadUsageInterval 1m -> 5m", for those that go on; the scope, and
                                      ///< "the policy: ReportReaders none -> users".

  bool empty() const { return starts.empty() && stops.empty() && changes.empty(); }
};

/// From `before` to `after`, two reports for one device.
PolicyDifference Compare(const PolicyReport& before, const PolicyReport& after);
