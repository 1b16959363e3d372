// `tvkctl event`: a fleet's own fact becomes a record of the service.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

#include "platform/runtime.h"

namespace tvkctl {

/// Texts in UTF-8, as they stand on the command line.
struct EventOptions {
  std::filesystem::path place;  ///< Where the service is reached; see platform::ChannelPlace.
  std::string dataset;
  std::string item;
  std::vector<std::string> data;  ///< "key=value" each.
};

/// Hands the event to the service, and says on `errors` why it was not written. 0: it is durable in the store; 1: it is
/// no event, or for another dataset; 2: the policy in force, or its quota, does not admit it; 3: the service is not up,
/// refuses this account, or could not write it.
int RunEvent(const EventOptions& options, platform::Runtime& runtime, std::ostream& out, std::ostream& errors);

}  // namespace tvkctl
