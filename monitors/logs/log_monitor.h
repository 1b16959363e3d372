// What the datasets that follow the system's event logs do alike: they read on from where they were, and lose and
// repeat nothing.
#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "framework/scheduled_monitor.h"
#include "monitors/logs/event_log_rendering.h"
#include "monitors/logs/reading_begin.h"
#include "platform/event_log_reader.h"

namespace TVK {

/// How far a dataset has read is kept in the store, in the same commit as the items that are made of what was read: a
/// kill at any moment neither loses an event nor repeats one, and what the store could not take is read again. A
/// dataset that never read begins with the oldest event that its query takes. One whose consent was withdrawn begins,
/// at its next start, with what is logged from then on. That a log was emptied, or that events may have gone unread, is
/// an item of its own, kInterruptedItem, which every such dataset has.
///
/// One thread reads. What is virtual here runs on it, unless it says otherwise.
class LogMonitor : public ScheduledMonitor {
 public:
  /// Reads the settings anew. Nothing before FollowLogs.
  void ReadAndUpdateDatasetSettings() override;

 protected:
  static constexpr wchar_t kInterruptedItem[] = L"LogInterrupted";

  /// As ScheduledMonitor.
  LogMonitor(const MonitorServices& services, const MonitorIdentity& identity,
             std::optional<ReportRule> report = std::nullopt);

  /// Begins to read, on a thread of this name, and to follow the settings. The end of StartMonitor.
  void FollowLogs(const std::string& thread);
  /// The query is another one. Any thread.
  void OnQueryChanged();

  /// Told before anything is read. `withdrawn`: the consent was withdrawn since the dataset last read; what happened
  /// until now is not to be recorded. False: the store failed, and it is to be told again.
  virtual bool BeginReading(bool /*withdrawn*/) { return true; }
  /// Which events are read: a structured query (UTF-8). Any thread.
  virtual std::string Query() = 0;
  /// Makes of the event, and of its whole XML, what is to be made of it. `behind` is to be written with the item of it,
  /// or with that of a later one for both. False: it could not be written, and is to be read again.
  virtual bool TakeEvent(const RenderedEvent& event, const std::string& xml, const DatasetState& behind) = 0;
  /// Writes what TakeEvent gathered of a batch: after it, and before the next one when it failed. False: it could not
  /// be written and is still there.
  virtual bool WriteTaken() { return true; }
  /// How long what TakeEvent keeps back may wait; kForever when that is nothing.
  virtual std::chrono::milliseconds Patience() { return platform::kForever; }
  /// Writes what TakeEvent keeps back: after Patience, before an interruption, and before the end. False: it could not
  /// be written.
  virtual bool Flush() { return true; }

 private:
  enum class Outcome { kStopped, kQueryChanged, kFailed };
  struct Interruption {
    std::uint64_t moves = 0;  ///< moves_ then.
    std::uint64_t lost = 0;   ///< Events; 0: unknown.
  };

  void Run();
  /// Reads as long as that goes; waits for `retry` when something failed.
  Outcome Read(std::chrono::milliseconds retry);
  /// For what failed to be tried again, or for ever.
  Outcome AwaitRetry(std::chrono::milliseconds retry);
  /// Until the reader failed, or for `retry` behind the failure of a channel: the others are read meanwhile.
  Outcome Follow(platform::EventLogReader& reader, std::chrono::milliseconds retry);
  enum class Taken {
    kAll,
    kNotOfAChannel,  ///< The reader gave one up, which is to be tried again by another reader.
    kNot,            ///< Something failed, behind which nothing is to be read.
  };
  /// Takes what there is.
  Taken Take(platform::EventLogReader& reader);
  /// Goes behind what the query does not want when the reader is left, unless something waits to be taken.
  void PassUnwanted(platform::EventLogReader& reader);
  /// False: it could not be written, and is to be told again.
  bool Tell(const platform::EventLogNotice& notice);
  void LogOnce(const platform::EventLogNotice& notice);
  /// Empty: none is kept. Nothing when the store cannot be read.
  std::optional<std::wstring> KeptPlace();
  /// From where on is read; nothing for a place of the log's own.
  std::optional<ReadingBegin> BeginBehind(const std::wstring& kept) const;
  /// Whether the event may be one of before the consent. One of a channel that was not read before has all of that
  /// channel read to its end before the places are enough again.
  bool IsTooOld(const RenderedEvent& event, bool of_new_channel);
  /// False when the store cannot be read or written.
  bool RestorePlace();
  /// Whether nothing may be read on: the consent was withdrawn since reading began, also where it is there again (the
  /// store then has the mark of it, which no place is to replace, and reading begins anew), or the store does not tell.
  bool BeginsAnew();
  void MoveTo(const std::string& place);
  /// What the store keeps of `place`: the begin with it, where there is one.
  std::wstring KeptText(const std::string& place) const;
  void KeepPlace();

  std::unique_ptr<platform::Event> query_changed_;  ///< Auto-reset; made before follows_ is set.
  std::atomic<bool> follows_ = false;
  // The thread's own.
  bool restored_ = false;            ///< Where reading begins is known.
  std::string place_;                ///< Behind all that was dealt with.
  std::uint64_t moves_ = 0;          ///< How often it became another one: numbers of a log may begin anew.
  platform::ElapsedTime kept_at_{};  ///< When the store was last given a place.
  std::optional<platform::ElapsedTime> passed_at_;  ///< When a reader last passed what the query does not want.
  std::optional<std::int64_t> begin_;               ///< Seconds since 1970: what was logged before is not read.
  /// Not every channel was read to its end since begin_. Windows' place names those alone of which something was read,
  /// and the others would be read from their oldest event on; later so is one that a newer policy adds.
  bool begins_ = false;
  bool unread_ = false;                                               ///< The reader gave a channel up.
  std::set<std::pair<platform::EventLogTrouble, std::string>> told_;  ///< By channel.
  std::map<std::wstring, Interruption> interrupted_;                  ///< As each was met last.
  bool store_failed_ = false;                                         ///< It was logged.
};

}  // namespace TVK
