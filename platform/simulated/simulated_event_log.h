// An event log that a test scripts.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <set>

#include "platform/event_log.h"
#include "platform/logged_event.h"
#include "platform/simulated/scripted.h"

namespace platform {

/// Answers a query. Empty: the machine's log cannot be queried.
using SimulatedEventLogAnswer = std::function<EventLogReading(const EventLogQuery&)>;

/// The channels "Application", "Security", "Setup" and "System", without events until some are appended. Its readers
/// see what is appended, and nothing of what queries are answered.
class SimulatedEventLog final : public EventLog, public Scripted<SimulatedEventLogAnswer> {
 public:
  SimulatedEventLog();
  ~SimulatedEventLog() override;
  SimulatedEventLog(const SimulatedEventLog&) = delete;
  SimulatedEventLog& operator=(const SimulatedEventLog&) = delete;

  EventLogReading Query(const EventLogQuery& query) override;
  EventLogReaderOpening OpenReader(Runtime& runtime, const EventLogReaderSettings& settings) override;
  EventLogStatus ReadStatus(const std::string& channel) override;

  /// Logs `event` in its channel, which must be one of the four, and gives it the next number.
  void Append(LoggedEvent event);
  /// Empties the channel; numbers begin anew.
  void Clear(const std::string& channel);
  /// The `count` oldest events are overwritten.
  void DropOldest(const std::string& channel, std::size_t count);
  /// What readers that are opened from now on find in the place of the channel: kChannelNotFound, kAccessRefused or
  /// kFailed; nothing: the channel again.
  void Fail(const std::string& channel, std::optional<EventLogTrouble> trouble);
  /// Readers cannot be opened from now on, unless `why` is kNone; the rest answers.
  void RefuseReaders(EventLogFailure why = EventLogFailure::kQuery) { refusal_ = why; }
  /// From now on as on Windows: what the query does not want wakes nobody, and moves a bookmark where that was asked
  /// for (EventLogReader::PassUnwanted) alone.
  void MoveWithWanted() { moves_with_wanted_ = true; }
  /// The next batch that is taken throws std::bad_alloc.
  void ThrowNext() { throws_next_ = true; }

 private:
  class Reader;
  struct Channel {
    std::vector<LoggedEvent> events = {};
    std::uint64_t last_id = 0;  ///< Of the newest that there ever was since the numbers began.
    std::optional<EventLogTrouble> trouble = {};
  };

  std::atomic<bool> throws_next_ = false;
  std::atomic<bool> moves_with_wanted_ = false;
  std::atomic<EventLogFailure> refusal_ = EventLogFailure::kNone;
  std::mutex channels_mutex_;                ///< Guards the two below.
  std::map<std::string, Channel> channels_;  ///< By name; the keys never change.
  std::set<Reader*> readers_;
};

}  // namespace platform
