// Events of the system's event log as the texts that records and logs carry.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/log/log.h"
#include "platform/event_log.h"

namespace TVK {

/// A field of a rendered event, and where an event keeps it.
struct EventLogField {
  const wchar_t* name;
  const char* path;
};

/// The fields that are read as they stand. A rendered event has "LevelName" and "EventData" besides.
inline constexpr EventLogField kEventLogFields[] = {
    {L"Channel", "Event/System/Channel"},
    {L"ProviderGuid", "Event/System/Provider/@Guid"},
    {L"EventSourceName", "Event/System/Provider/@EventSourceName"},
    {L"Level", "Event/System/Level"},
    {L"EventID", "Event/System/EventID"},
    {L"TaskCategory", "Event/System/Task"},
    {L"Opcode", "Event/System/Opcode"},
    {L"EventRecordID", "Event/System/EventRecordID"},
    {L"TimeCreated", "Event/System/TimeCreated/@SystemTime"},
    {L"ProcessID", "Event/System/Execution/@ProcessID"},
    {L"ThreadID", "Event/System/Execution/@ThreadID"},
};

/// Selected with the fields, but no field itself.
inline constexpr char kEventLogProviderPath[] = "Event/System/Provider/@Name";

/// An "EventData" of more characters than this gives way to kEventDataTooLarge.
inline constexpr std::size_t kLongestEventData = 2048;
inline constexpr wchar_t kEventDataTooLarge[] =
    L"<EventData> <Data>TVK Error 400 - EventData larger than 2048 size</Data> </EventData>";

/// A source's name, or another value beside "EventData", of more characters than this is cut: whoever may log chooses
/// its length, and a record has a largest size.
inline constexpr std::size_t kLongestEventValue = 256;

/// The first kLongestEventValue characters of `text` as std::wstring counts them, without half a character at the end.
std::wstring BoundedEventValue(std::wstring text);

struct RenderedEvent {
  std::wstring provider_name;                ///< Empty when the event does not tell.
  std::optional<std::int64_t> time_created;  ///< Seconds since 1970.
  /// The fields by name. One that the event does not have is left out; "EventData" is always there.
  std::map<std::wstring, std::wstring> fields;
};

/// Seconds since 1970 as local time with its distance from UTC, "2026-01-31T09:05:00+01:00"; '-' west of UTC.
std::wstring EventTimeText(std::int64_t unix_seconds, const platform::Clock& clock);

/// The element EventData out of an event's XML (UTF-8) as it stands there, or "<EventData />" when it is empty, is not
/// there or does not end. One of more than kLongestEventData characters (a character beyond U+FFFF counts once) gives
/// kEventDataTooLarge.
std::wstring EventDataText(std::string_view xml);

/// What a record must hold to be rendered: the paths of kEventLogFields, and kEventLogProviderPath behind them.
std::vector<std::string> EventLogPaths();

/// `record` holds the values of kEventLogFields and of kEventLogProviderPath behind them; missing ones count as absent.
RenderedEvent RenderEvent(const platform::EventLogRecord& record, const platform::Clock& clock);

/// What a query gave.
struct EventLogAnswer {
  std::vector<RenderedEvent> events;  ///< Newest first.
  platform::EventLogFailure failure = platform::EventLogFailure::kNone;
};

/// Asks for the newest `limit` events of `channel` that answer `xpath`. A failure is logged to `log` in the name of
/// `caller`; what was read before it counts. Any thread.
EventLogAnswer ReadLoggedEvents(platform::EventLog& event_log, const platform::Clock& clock, const std::string& channel,
                                const std::string& xpath, std::size_t limit, const Log& log,
                                const std::wstring& caller);

}  // namespace TVK
