// A report as JSON, on its way from the service to who may not read the store. Pure; any thread.
#pragma once

#include <json/value.h>

#include <optional>

#include "client/report/report.h"

namespace TVK {

/// Counts and curves without their empty buckets.
Json::Value ReportToJson(const Report& report);

/// Leaves out what makes a report long, counted in its counts of that: the changes of what is described, then half of
/// the descriptions, those behind first. False: there is none.
bool Shorten(Report& report);

/// Nothing for what is no report: other types, moments outside of the years 1970 to 9999, values that are none. Keys
/// that it does not have are passed over.
std::optional<Report> ReportFromJson(const Json::Value& value);

}  // namespace TVK
