#include "client/store/retention.h"

#include <limits>

namespace TVK {
namespace {

// A look every so many records, and twice as many removed in one transaction: removing outpaces writing, and no writer
// waits long for it.
constexpr std::size_t kRecordsBetweenChecks = 256;
constexpr int kLargestStep = 512;

// Finding contexts that nothing refers to reads every record, so it waits until there may be many.
constexpr std::int64_t kSpareContexts = 64;

}  // namespace

int Retention::Prepare() {
  // Removable are item events that are not the last of their series.
  const std::string remove_items =
      "DELETE FROM record WHERE written < ?1 AND sequence IN ("
      " SELECT r.sequence FROM record r CROSS JOIN series s ON s.id = r.series"
      " WHERE s.kind = 0 AND r.number < (SELECT max(number) FROM record WHERE series = r.series)"
      " ORDER BY r.sequence LIMIT " +
      std::to_string(kLargestStep) + ")";
  struct {
    Statement& statement;
    std::string_view sql;
  } const statements[] = {
      {page_count_, "PRAGMA page_count"},
      {free_pages_, "PRAGMA freelist_count"},
      {remove_items_, remove_items},
      {count_contexts_, "SELECT count(*) FROM series s CROSS JOIN record r ON r.series = s.id WHERE s.kind <> 0"},
      // The key by which others refer to a context depends on its kind; dataset contexts refer to device contexts.
      {remove_contexts_,
       "DELETE FROM record WHERE sequence IN ("
       " SELECT r.sequence FROM series s CROSS JOIN record r ON r.series = s.id"
       " WHERE s.kind = ?1 AND r.number < (SELECT max(number) FROM record WHERE series = s.id) AND json_valid(r.json)"
       " AND ifnull(r.json ->> ?2, '') NOT IN ("
       "  SELECT ifnull(u.json ->> ?2, '') FROM record u CROSS JOIN series t ON t.id = u.series"
       "  WHERE t.kind < ?1 AND json_valid(u.json)))"},
  };
  for (const auto& [statement, sql] : statements) {
    if (const int code = statement.Prepare(database_, sql); code != SQLITE_OK) return code;
  }
  return database_.ReadNumber("PRAGMA page_size", page_size_);
}

int Retention::AfterCommit(std::size_t written, std::int64_t now_seconds) {
  if (written < until_check_) {
    until_check_ -= written;
    return SQLITE_OK;
  }
  until_check_ = kRecordsBetweenChecks;

  std::int64_t used = 0;
  int code = UsedBytes(used);
  if (code != SQLITE_OK) return code;
  const bool too_large = static_cast<std::uint64_t>(used) > limits_.max_bytes;
  if (!too_large && limits_.max_age_seconds == 0) return SQLITE_OK;
  std::int64_t removed = 0;
  code = RemoveItems(too_large ? std::numeric_limits<std::int64_t>::max() : now_seconds - limits_.max_age_seconds,
                     removed);
  if (code != SQLITE_OK || removed == 0) return code;
  if (removed == kLargestStep) until_check_ = 0;  // there may be more: go on after the next commit
  return RemoveContexts();
}

int Retention::UsedBytes(std::int64_t& bytes) {
  Run pages(page_count_);
  if (const int code = pages.Step(); code != SQLITE_ROW) return code;
  Run free(free_pages_);
  if (const int code = free.Step(); code != SQLITE_ROW) return code;
  bytes = (pages.Number(0) - free.Number(0)) * page_size_;
  return SQLITE_OK;
}

int Retention::RemoveItems(std::int64_t older_than, std::int64_t& removed) {
  const int code = Run(remove_items_).Bind(1, older_than).Finish();
  if (code == SQLITE_OK) removed = sqlite3_changes(database_.handle());
  return code;
}

int Retention::RemoveContexts() {
  const auto count = [&](std::int64_t& contexts) {
    Run run(count_contexts_);
    const int code = run.Step();
    if (code != SQLITE_ROW) return code;
    contexts = run.Number(0);
    return SQLITE_OK;
  };
  std::int64_t contexts = 0;
  int code = count(contexts);
  if (code != SQLITE_OK || contexts < 2 * contexts_in_use_ + kSpareContexts) return code;
  // Dataset contexts first, since they may be the last that refer to a device context.
  code = Run(remove_contexts_).Bind(1, std::int64_t{1}).Bind(2, "dataset_context_id").Finish();
  if (code == SQLITE_OK) code = Run(remove_contexts_).Bind(1, std::int64_t{2}).Bind(2, "device_context_id").Finish();
  return code == SQLITE_OK ? count(contexts_in_use_) : code;
}

}  // namespace TVK
