// `tvkctl status`: how the running service stands.
#pragma once

#include <filesystem>
#include <iosfwd>

#include "platform/runtime.h"

namespace tvkctl {

struct StatusOptions {
  std::filesystem::path place;  ///< Where the service is reached; see platform::ChannelPlace.
  bool json = false;
};

/// Asks the service and writes its answer to `out`; why there is none to `errors`. Returns the exit code: 0 up, 3 not
/// up, or not to be asked by this account.
int RunStatus(const StatusOptions& options, platform::Runtime& runtime, std::ostream& out, std::ostream& errors);

}  // namespace tvkctl
