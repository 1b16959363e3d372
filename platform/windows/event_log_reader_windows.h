// A reader of events over subscriptions of the Windows event log.
#pragma once

#include "platform/event_log_reader.h"

namespace platform::windows {

/// One subscription for each channel, since a channel that is refused or missing would fail a joint one. Each begins
/// behind its bookmark in strict mode, which alone says that the bookmark's event is gone: then the channel's numbers
/// tell whether it was cleared or how much is lost. What the service could not give on a healthy channel (a batch that
/// is too large, a time-out) is read again from the bookmark in smaller batches.
///
/// A bookmark holds a line for each channel: its name, a tabulator and the XML of the service's own bookmark.
EventLogReaderOpening OpenEventLogReader(const EventLogReaderSettings& settings);

}  // namespace platform::windows
