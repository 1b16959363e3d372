// Who is told the report of what the store holds.
#pragma once

#include "client/policy/telemetry_policy.h"

namespace TVK {

/// The policy's setting: "administrators", which is what anything else means, or "users": whoever is logged on, too.
inline constexpr wchar_t kReportReadersSetting[] = L"ReportReaders";

/// Whether the policy lets users who are logged on have the report. Pure; any thread.
inline bool UsersMayReadReport(const TelemetryPolicy& policy) {
  return policy.Setting(kReportReadersSetting) == L"users";
}

}  // namespace TVK
