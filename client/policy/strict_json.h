// From text to a JSON value, or to one problem that says why not; internal to the policy library.
#pragma once

#include <json/value.h>

#include <optional>
#include <string_view>

#include "client/policy/problem_list.h"

namespace TVK {

/// Reads one JSON object by the rules of ParseTelemetryPolicy. Nothing, and one fatal problem added, when `text` is no
/// such object.
std::optional<Json::Value> ReadStrictJson(std::string_view text, ProblemList& problems);

}  // namespace TVK
