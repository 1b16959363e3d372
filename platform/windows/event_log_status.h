// How a channel of the event log stands.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/event_log_reader.h"
#include "platform/windows/sys.h"

namespace platform::windows {

/// The numbers of the events that a channel holds.
struct LogExtent {
  std::uint64_t oldest = 0;
  std::uint64_t count = 0;  ///< 0: none; `oldest` then says nothing.
};

/// Nothing on failure.
std::optional<LogExtent> ReadLogExtent(const std::string& channel);

EventLogStatus ReadLogStatus(const std::string& channel);

}  // namespace platform::windows
