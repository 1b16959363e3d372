// What policy filters look at, of this machine or out of a file.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>

#include "client/policy/eligibility_filter.h"

namespace tvkctl {

/// Writes the facts as lines for people or as one JSON object, which is what a facts file holds: "model",
/// "manufacturer", "brand", "osName", "osVersion". No id is among them. Returns 0.
int RunInspectFacts(const TVK::DeviceTraits& traits, bool json, std::ostream& out);

/// The facts of a file; nothing, and why in `problem`, when it is none.
std::optional<TVK::DeviceTraits> ReadFactsFile(const std::filesystem::path& file, std::string& problem);

}  // namespace tvkctl
