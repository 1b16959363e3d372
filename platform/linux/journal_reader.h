// A reader of events over the systemd journal.
#pragma once

#include <memory>

#include "platform/event_log_reader.h"
#include "platform/linux/journal.h"
#include "platform/runtime.h"

namespace platform {

class EventLogFilter;

/// The journal has no channels: each entry is put in one (journal_entry.h), and the place is one for all. A bookmark is
/// a cursor of the journal (sd_journal_get_cursor(3)). `follows`: entries may still come; the reader's news then is for
/// the Linux runtime. `root` is where the journal was opened.
std::unique_ptr<EventLogReader> ReadJournal(Journal journal, const std::filesystem::path& root, EventLogFilter filter,
                                            EventLogReaderSettings settings, Runtime& runtime, const Clock& clock,
                                            bool follows);

}  // namespace platform
