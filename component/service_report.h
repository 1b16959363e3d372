// What the service tells of its store to an owner of the machine who may not read it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "platform/clock.h"

namespace TVK {

/// A JSON object: `report`, see ReportFromJson (client/report/report_json.h), and `status`, of `status` (a JSON object,
/// see ServiceStatus) what concerns the owner: whether it is up, the policy file, the scope, and of each dataset
/// whether it runs and why not. What `fits` finds too long is told without what Shorten leaves out. Reads the store on
/// a connection of its own. Nothing, and the reason in `problem`, when it cannot be read, or when `goes_on`, which is
/// asked while it is read, says no. Any thread.
std::optional<std::string> ServiceReport(const std::filesystem::path& store_file,
                                         std::optional<std::int64_t> since_seconds, const std::string& status,
                                         const std::function<bool()>& goes_on,
                                         const std::function<bool(const std::string&)>& fits,
                                         const platform::Clock& clock, std::string& problem);

}  // namespace TVK
