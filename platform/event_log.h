// The system's event log: events found by a query, with the values that the query names, and a reader that follows
// channels as they grow. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "platform/clock.h"

namespace platform {

class Runtime;
struct EventLogReaderOpening;
struct EventLogReaderSettings;
struct EventLogStatus;

/// What an event says at one place: nothing, a number, a text (UTF-8; identifiers as "{00112233-...}") or a moment.
using EventLogValue = std::variant<std::monostate, std::uint64_t, std::string, WallTime>;

struct EventLogQuery {
  std::string channel;                   ///< "System".
  std::string xpath;                     ///< Which events of it, "*[System[(EventID=12)]]".
  std::vector<std::string> value_paths;  ///< What to render of each event, "Event/System/Channel".
  std::size_t limit = 1;                 ///< The newest so many.
};

struct EventLogRecord {
  std::vector<EventLogValue> values;  ///< One for each of the query's value paths, in their order.
  std::string xml;                    ///< The whole event; empty where it could not be rendered.
};

/// The step at which a reading ended early.
enum class EventLogFailure {
  kNone,
  kNotSupported,  ///< The system keeps no such log.
  kChannelNotFound,
  kInvalidQuery,
  kQuery,  ///< EvtQuery, for another reason than the two above.
  kNext,
  kCreateRenderContext,
  kRenderValues,
  kRenderXml,
  kNoMemoryForValues,
  kNoMemoryForXml,
};

struct EventLogReading {
  std::vector<EventLogRecord> records;  ///< Newest first; those from before the failure, if there was one.
  EventLogFailure failure = EventLogFailure::kNone;
  std::uint32_t error = 0;  ///< The system's error number.
};

class EventLog {
 public:
  EventLog() = default;
  EventLog(const EventLog&) = delete;
  EventLog& operator=(const EventLog&) = delete;
  virtual ~EventLog() = default;

  /// The newest events that answer `query`. May wait some seconds for the system's log service.
  virtual EventLogReading Query(const EventLogQuery& query) = 0;

  /// Begins to follow channels (event_log_reader.h). The log and `runtime` must outlive the reader.
  virtual EventLogReaderOpening OpenReader(Runtime& runtime, const EventLogReaderSettings& settings) = 0;

  /// How `channel` ("System") stands now. May wait as Query does.
  virtual EventLogStatus ReadStatus(const std::string& channel) = 0;
};

}  // namespace platform
