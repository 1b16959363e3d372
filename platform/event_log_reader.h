// Events of the system's logs as they come, none lost and none twice: the reader's user keeps a bookmark with what it
// made of the events, and the next reader goes on behind it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/event_log.h"
#include "platform/waitable.h"

namespace platform {

struct EventLogReaderSettings {
  /// Which events of which channels: a structured query, "<QueryList>..." (UTF-8). Windows takes what its log takes and
  /// judges it channel by channel; elsewhere it is one that event_log_filter.h reads. A time condition is held against
  /// the moment at which an event is read.
  std::string query;
  std::vector<std::string> value_paths = {};  ///< What to render of each event, as in EventLogQuery.
  bool xml = true;                            ///< Whether events come with their XML; without it reading is cheaper.
  /// Of an earlier reader: the first event is the one behind it. Empty: the oldest that there is. So it is for a
  /// channel that the bookmark does not know (Windows keeps one place for each). One that is none is told as a gap.
  std::string bookmark = {};
};

struct EventLogEvent {
  EventLogRecord record;  ///< Values that the system could not render are absent, such XML is empty.
  std::string bookmark;   ///< The place behind it, for all channels. Opaque; one line of UTF-8.
  /// The bookmark that the reader was given does not know its channel, of which the oldest event came first. Never on
  /// Linux, whose bookmark knows all of them.
  bool of_new_channel = false;
};

enum class EventLogTrouble {
  kChannelNotFound,  ///< There is no such channel; without one in the notice: the machine keeps no log.
  kAccessRefused,    ///< This account may not read it, or parts of it.
  kFailed,           ///< It could not be opened or read on, for another reason or a query that it does not take.
  kCleared,          ///< Somebody emptied it; reading goes on with its oldest event. Of Linux' journal that is a gap.
  kGap,              ///< Events behind the bookmark may have gone unread: overwritten, or the bookmark's own is gone.
};

/// What happened to one channel. After one of the first three, each of which a reader tells once, nothing more comes of
/// it from this reader, but for what of Linux' journal may be read; who wants to try again opens another one.
struct EventLogNotice {
  EventLogTrouble trouble = EventLogTrouble::kFailed;
  std::string channel = {};                ///< Empty: all of them.
  std::uint32_t error = 0;                 ///< The system's error number; 0 without one.
  std::optional<std::uint64_t> lost = {};  ///< Of a gap: how many events of the channel, of any kind; absent: unknown.

  friend bool operator==(const EventLogNotice&, const EventLogNotice&) = default;
};

struct EventLogBatch {
  std::vector<EventLogEvent> events = {};    ///< Oldest first within a channel; between channels in no order.
  std::vector<EventLogNotice> notices = {};  ///< What happened before these events of the channel.
  /// Behind all that was looked at: on Linux events that the query does not want, too, on Windows those after
  /// PassUnwanted alone. May be empty.
  std::string bookmark = {};
  bool more = false;  ///< There may be more already.
};

/// Open, it makes no thread. It belongs to the thread that opened it, which alone calls it, waits for its news and
/// destroys it.
class EventLogReader {
 public:
  EventLogReader() = default;
  EventLogReader(const EventLogReader&) = delete;
  EventLogReader& operator=(const EventLogReader&) = delete;
  virtual ~EventLogReader() = default;

  /// Is signalled when there may be something to take: at first, after a Take that said `more`, and once something may
  /// have come since. Who waits for it takes then. Nothing wakes a waiter but an entry in a log, on Linux any entry of
  /// the journal; a journal on a network's file system tells nothing. The reader's own, for waits of the runtime that
  /// it was opened with.
  virtual Waitable& news() = 0;

  /// The next events, `limit` (at least 1) at most. Waits for no event, but may wait some seconds for the system's log
  /// service. Ends early, with `more`, after looking at many that the query does not want, or before a notice.
  virtual EventLogBatch Take(std::size_t limit) = 0;

  /// Has the next Take bring its batch's bookmark behind the newest event of each channel that it empties, also where
  /// the query wants none of the last ones, so that the log may lose those unnoticed. It costs a question to the
  /// system's log service for each channel. Nothing on Linux, where the bookmark is there with each Take.
  virtual void PassUnwanted() {}
};

struct EventLogReaderOpening {
  std::unique_ptr<EventLogReader> reader = nullptr;  ///< Null on failure.
  /// kInvalidQuery; kNotSupported where there is no log to read at all, now or later; kChannelNotFound where there is
  /// none yet; kQuery for another reason.
  EventLogFailure failure = EventLogFailure::kNone;
  std::uint32_t error = 0;  ///< The system's error number.
};

/// How a channel stands. On Linux all channels lie in one journal, and each is told as that stands.
struct EventLogStatus {
  std::optional<std::uint64_t> events = {};      ///< How many it holds; absent on Linux, where nobody counts them.
  std::optional<std::uint64_t> bytes = {};       ///< On the disk.
  std::optional<std::uint64_t> most_bytes = {};  ///< Where old events begin to go; absent on Linux, where more decides.
  std::optional<WallTime> oldest = {};           ///< When the oldest event was logged; absent without any.
  EventLogFailure failure = EventLogFailure::kNone;  ///< kNotSupported, kChannelNotFound or kQuery: nothing is told.
  std::uint32_t error = 0;                           ///< The system's error number.
};

}  // namespace platform
