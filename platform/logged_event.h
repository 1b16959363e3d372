// An event as a value, for logs that do not render theirs as Windows does: the same values and the same XML. Pure
// functions; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/event_log.h"
#include "platform/event_log_reader.h"

namespace platform {

struct EventDataField {
  std::string name;   ///< Empty: none.
  std::string value;  ///< UTF-8; what is none becomes U+FFFD when it is written as XML.
};

struct LoggedEvent {
  std::string channel = {};   ///< "Application", "Security", "Setup" or "System".
  std::string provider = {};  ///< Who logged it.
  std::uint32_t id = 0;       ///< 0..65535; 0: no id.
  std::uint32_t level = 0;    ///< 1 critical, 2 error, 3 warning, 4 information, 5 verbose; 0: logged whatever is set.
  WallTime time{};
  std::optional<std::uint64_t> record_id = {};  ///< Its number in the channel.
  std::optional<std::uint64_t> process = {};    ///< Process id.
  std::optional<std::uint64_t> thread = {};     ///< Thread id.
  std::vector<EventDataField> data = {};        ///< In their order.
};

/// What the event has at a path ("Event/System/Level"); nothing at one that it does not know. The name of the source is
/// the provider's.
EventLogValue ValueAt(const LoggedEvent& event, std::string_view path);

/// The event as one element Event (UTF-8) with System and EventData. Characters that XML cannot hold become U+FFFD.
std::string XmlOf(const LoggedEvent& event);

/// What `settings` want of it.
EventLogRecord RecordOf(const LoggedEvent& event, const EventLogReaderSettings& settings);

}  // namespace platform
