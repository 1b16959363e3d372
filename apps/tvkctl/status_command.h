// `tvkctl status`: how the service stands.
#pragma once

#include <json/value.h>

#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>

#include "apps/tvkctl/output.h"
#include "platform/runtime.h"

namespace tvkctl {

struct StatusOptions {
  std::filesystem::path place;        ///< Where the service is reached; see platform::ChannelPlace.
  std::filesystem::path data_folder;  ///< Of the store and of the copy of the last good policy.
  std::filesystem::path policy_file;
  bool json = false;
  std::size_t width = kAnyWidth;  ///< Cells of a line.
};

/// Asks the service and writes its answer to `out`; where it does not answer, why and what the files alone tell.
/// Returns the exit code: 0 up, 4 up, but something needs attention, 3 not up, or not to be asked by this account.
int RunStatus(const StatusOptions& options, platform::Runtime& runtime, std::ostream& out, std::ostream& errors);

/// How a dataset of a status stands, for people, and why; empty: nothing more is to be said. Pure.
std::wstring DatasetState(const Json::Value& dataset);
std::wstring DatasetWhy(const Json::Value& dataset);

/// What the service at `place` tells of itself; nothing, and why in `problem`, when it does not.
std::optional<Json::Value> AskStatus(const std::filesystem::path& place, platform::Runtime& runtime,
                                     std::string& problem, bool* refused = nullptr);

}  // namespace tvkctl
