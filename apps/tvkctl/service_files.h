// What the service's files tell without the service.
#pragma once

#include <json/value.h>

#include <filesystem>

#include "platform/clock.h"

namespace tvkctl {

/// An object with the keys that the status of a running service has, as far as files tell: `policy`, `policy_state`
/// ("file", "last good copy" or "none": what a service would start with; left out where this account may not read
/// the file, which the service may), `policy_problem`, `scope`, `store` with `bytes`, `oldest_record`, `last_record`
/// and `problem`. Nothing is changed.
Json::Value ReadServiceFiles(const std::filesystem::path& policy_file, const std::filesystem::path& data_folder,
                             const platform::Clock& clock);

}  // namespace tvkctl
