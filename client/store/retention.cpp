#include "client/store/retention.h"

#include <algorithm>
#include <limits>
#include <string>
#include <string_view>

#include "client/records/record_kind.h"
#include "client/store/removed_for_age.h"

namespace TVK {
namespace {

// A look at the size every so many records, and twice as many removed in one transaction: removing outpaces writing,
// and no writer waits long for it.
constexpr std::size_t kRecordsBetweenChecks = 256;
constexpr int kLargestStep = 512;

// Dates stand in no index, so finding the old ones reads the whole table: only when this part of the age has passed.
constexpr std::int64_t kAgeChecksPerAge = 90;
constexpr std::int64_t kSecondsPerDay = std::int64_t{24} * 3600;

// Finding contexts that nothing refers to reads every record, too. For the sake of the size it waits until there may be
// many. They go in one step, since each one reads every record again.
constexpr std::int64_t kSpareContexts = 64;

constexpr std::int64_t kFar = std::numeric_limits<std::int64_t>::max();

// A record dated after ?2 was written by a wrong clock, nobody knows when: it goes with the first one behind it that is
// too old. The inner select runs once a statement, and only when there is such a record.
constexpr char kDue[] =
    "(r.written < ?1 OR (r.written > ?2 AND r.sequence <"
    " (SELECT sequence FROM record WHERE written < ?1 ORDER BY sequence DESC LIMIT 1)))";

}  // namespace

int Retention::Prepare() {
  const std::string due = kDue;
  // Removable are item events that are not the last of their series.
  const std::string remove_items =
      "DELETE FROM record WHERE sequence IN ("
      " SELECT r.sequence FROM record r CROSS JOIN series s ON s.id = r.series"
      " WHERE " +
      due +
      " AND s.kind = 0 AND r.number < (SELECT max(number) FROM record WHERE series = r.series)"
      " ORDER BY r.sequence LIMIT " +
      std::to_string(kLargestStep) + ") RETURNING sequence";
  const std::string count_contexts =
      "SELECT count(*) FROM series s CROSS JOIN record r ON r.series = s.id"
      " WHERE s.kind <> 0 AND r.number < (SELECT max(number) FROM record WHERE series = s.id) AND " +
      due;
  // ?4: those in use, as a JSON array. What refers to a context is found in one pass over the table.
  const std::string remove_contexts =
      "DELETE FROM record WHERE sequence IN ("
      " SELECT r.sequence FROM series s CROSS JOIN record r ON r.series = s.id"
      " WHERE s.kind = ?3 AND r.number < (SELECT max(number) FROM record WHERE series = s.id) AND " +
      due +
      " AND r.sequence NOT IN (SELECT value FROM json_each(?4))"
      " AND r.sequence NOT IN ("
      "  SELECT dataset_context FROM record WHERE dataset_context IS NOT NULL"
      "  UNION ALL SELECT device_context FROM record WHERE device_context IS NOT NULL)) RETURNING sequence";
  struct {
    Statement& statement;
    std::string_view sql;
  } const statements[] = {
      {page_count_, "PRAGMA page_count"}, {free_pages_, "PRAGMA freelist_count"}, {remove_items_, remove_items},
      {count_contexts_, count_contexts},  {remove_contexts_, remove_contexts},
  };
  for (const auto& [statement, sql] : statements) {
    if (const int code = statement.Prepare(database_, sql); code != SQLITE_OK) return code;
  }
  return database_.ReadNumber("PRAGMA page_size", page_size_);
}

int Retention::AfterCommit(std::size_t written, std::int64_t now_seconds, const KnownContexts& in_use) {
  const bool check_due = written >= until_check_;
  const bool ages_due =
      limits_.max_age_seconds != 0 &&
      (now_seconds < ages_checked_ || now_seconds - ages_checked_ > limits_.max_age_seconds / kAgeChecksPerAge ||
       (ages_failed_ && check_due));
  if (!check_due && !ages_due) {
    until_check_ -= written;
    return SQLITE_OK;
  }
  until_check_ = kRecordsBetweenChecks;
  int code = ages_due ? RemoveOld(now_seconds, in_use) : SQLITE_OK;
  bool too_large = false;
  if (code == SQLITE_OK) code = IsTooLarge(too_large);
  if (code != SQLITE_OK) return code;
  if (too_large) return Shrink(in_use);
  stays_too_large_ = false;
  return SQLITE_OK;
}

int Retention::RemoveOld(std::int64_t now_seconds, const KnownContexts& in_use) {
  ages_checked_ = now_seconds;
  ages_failed_ = true;
  const Dates old{now_seconds - limits_.max_age_seconds, now_seconds + kSecondsPerDay};
  Removed removed;
  int code = database_.Execute("BEGIN IMMEDIATE");
  if (code == SQLITE_OK) code = RemoveItems(old, removed);
  const bool maybe_more = removed.count == kLargestStep;
  if (code == SQLITE_OK && !maybe_more) code = RemoveContexts(old, 1, in_use, removed);
  if (code == SQLITE_OK && removed.count > 0) {
    code = NoteRemovedForAge(database_, {.last_sequence = removed.last_sequence, .before_seconds = old.before});
  }
  if (code == SQLITE_OK) code = database_.Execute("COMMIT");
  if (code != SQLITE_OK) {
    database_.Rollback();
    return code;
  }
  ages_failed_ = false;
  if (maybe_more) ages_checked_ = kFar;  // go on after the next commit
  return SQLITE_OK;
}

int Retention::Shrink(const KnownContexts& in_use) {
  constexpr Dates kAll{kFar, kFar};
  Removed removed;
  // What nothing refers to goes ahead of item events.
  int code = RemoveContexts(kAll, 2 * contexts_left_ + kSpareContexts, in_use, removed);
  bool too_large = false;
  if (code == SQLITE_OK) code = IsTooLarge(too_large);
  if (code != SQLITE_OK || !too_large) return code;
  removed = {};
  code = RemoveItems(kAll, removed);
  if (code != SQLITE_OK) return code;
  if (removed.count == kLargestStep) {
    until_check_ = 0;
    return SQLITE_OK;
  }
  code = RemoveContexts(kAll, 1, in_use, removed);
  if (code == SQLITE_OK) code = IsTooLarge(too_large);
  stays_too_large_ = stays_too_large_ || (code == SQLITE_OK && too_large);
  return code;
}

int Retention::IsTooLarge(bool& too_large) {
  Run pages(page_count_);
  if (const int code = pages.Step(); code != SQLITE_ROW) return code;
  Run free(free_pages_);
  if (const int code = free.Step(); code != SQLITE_ROW) return code;
  too_large = static_cast<std::uint64_t>((pages.Number(0) - free.Number(0)) * page_size_) > limits_.max_bytes;
  return SQLITE_OK;
}

int Retention::Remove(Run& run, Removed& removed) {
  int code = run.Step();
  for (; code == SQLITE_ROW; code = run.Step()) {
    ++removed.count;
    removed.last_sequence = std::max(removed.last_sequence, run.Number(0));
  }
  return code == SQLITE_DONE ? SQLITE_OK : code;
}

int Retention::RemoveItems(const Dates& dates, Removed& removed) {
  Run run(remove_items_);
  return Remove(run.Bind(1, dates.before).Bind(2, dates.after), removed);
}

int Retention::RemoveContexts(const Dates& dates, std::int64_t at_least, const KnownContexts& in_use,
                              Removed& removed) {
  std::int64_t contexts = 0;
  int code = CountContexts(dates, contexts);
  if (code != SQLITE_OK || contexts < at_least) return code;
  std::string sequences;
  for (const std::int64_t sequence : in_use.Sequences())
    sequences += (sequences.empty() ? "[" : ",") + std::to_string(sequence);
  sequences += sequences.empty() ? "[]" : "]";
  // Dataset contexts first, since they may be the last that refer to a device context.
  for (const RecordKind kind : {RecordKind::kDataset, RecordKind::kDevice}) {
    Run run(remove_contexts_);
    run.Bind(1, dates.before).Bind(2, dates.after).Bind(3, static_cast<std::int64_t>(kind)).Bind(4, sequences);
    code = Remove(run, removed);
    if (code != SQLITE_OK) return code;
  }
  const bool all = dates.before == kFar;
  return all ? CountContexts(dates, contexts_left_) : SQLITE_OK;
}

int Retention::CountContexts(const Dates& dates, std::int64_t& contexts) {
  Run run(count_contexts_);
  const int code = run.Bind(1, dates.before).Bind(2, dates.after).Step();
  if (code != SQLITE_ROW) return code;
  contexts = run.Number(0);
  return SQLITE_OK;
}

}  // namespace TVK
