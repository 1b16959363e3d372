// Policies as the documents that say them.
#pragma once

#include <string>

#include "client/policy/telemetry_policy.h"

namespace TVK {

/// A document in one line that ParseTelemetryPolicy, or ParseTvkPolicy, reads as this policy. Pure; any thread.
std::string ToJson(const TelemetryPolicy& policy);
std::string ToJson(const TvkPolicy& policy);

}  // namespace TVK
