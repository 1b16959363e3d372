// The Windows event log.
#pragma once

#include "platform/event_log.h"

namespace platform::windows {

/// See Machine::QueryEventLog. Any thread.
EventLogReading QueryEventLog(const EventLogQuery& query);

}  // namespace platform::windows
