// A reader of events over the systemd journal.
#pragma once

#include <memory>

#include "platform/event_log_reader.h"
#include "platform/linux/journal.h"

namespace platform {

class EventLogFilter;

/// The journal has no channels: each entry is put in one (journal_entry.h), and the place is one for all. A bookmark is
/// a cursor of the journal (sd_journal_get_cursor(3)). The reader's news is for the Linux runtime. `root` is where the
/// journal was opened. `clock` must outlive the reader.
std::unique_ptr<EventLogReader> ReadJournal(Journal journal, const std::filesystem::path& root, EventLogFilter filter,
                                            EventLogReaderSettings settings, const Clock& clock);

}  // namespace platform
