// The report of a store that this account may not read, told by the service.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "apps/tvkctl/report/standing.h"
#include "client/report/report.h"
#include "platform/runtime.h"

namespace tvkctl {

/// Asks the service at `place` (see platform::ChannelPlace). False, with the reason in `problem` and nothing else
/// changed, when it does not tell.
bool AskReport(const std::filesystem::path& place, std::optional<std::int64_t> since, platform::Runtime& runtime,
               TVK::Report& report, Standing& standing, std::string& problem);

/// What the service tells, as JSON. False, with nothing changed, for what is none. Pure; any thread.
bool ReadToldReport(const std::string& text, TVK::Report& report, Standing& standing);

}  // namespace tvkctl
