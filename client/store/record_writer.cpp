#include "client/store/record_writer.h"

namespace TVK {

int RecordWriter::Prepare() {
  struct {
    Statement& statement;
    const char* sql;
  } const statements[] = {
      {begin_, "BEGIN IMMEDIATE"},
      {commit_, "COMMIT"},
      {last_sequence_, "SELECT max(sequence) FROM record"},
      // Read backwards from the newest record: there is an item event at once or after a few contexts.
      {last_item_number_,
       "SELECT r.number FROM record r CROSS JOIN series s ON s.id = r.series WHERE s.kind = 0"
       " ORDER BY r.sequence DESC LIMIT 1"},
      {find_series_, "SELECT id FROM series WHERE kind = ?1 AND dataset_id = ?2 AND item_id = ?3"},
      {add_series_, "INSERT INTO series(kind, dataset_id, item_id) VALUES(?1, ?2, ?3)"},
      {insert_, "INSERT INTO record(sequence, series, number, written, json) VALUES(?1, ?2, ?3, ?4, ?5)"},
  };
  for (const auto& [statement, sql] : statements) {
    if (const int code = statement.Prepare(database_, sql); code != SQLITE_OK) return code;
  }
  return SQLITE_OK;
}

void RecordWriter::Write(std::span<QueuedRecord* const> records, std::int64_t now_seconds) {
  int code = WriteTogether(records, now_seconds);
  const bool one_by_one = code != SQLITE_OK && began_ && records.size() > 1;
  for (QueuedRecord* const& record : records) {
    // When not even a transaction could be begun, the others would only wait for the same answer.
    if (one_by_one && began_) code = WriteTogether({&record, 1}, now_seconds);
    record->result = code;
  }
}

int RecordWriter::WriteTogether(std::span<QueuedRecord* const> records, std::int64_t now_seconds) {
  int code = Begin();
  began_ = code == SQLITE_OK;
  for (QueuedRecord* record : records) {
    if (code == SQLITE_OK) code = Insert(*record, now_seconds);
  }
  if (code == SQLITE_OK) code = Run(commit_).Finish();
  if (code != SQLITE_OK) database_.Rollback();
  return code;
}

// The counters are read in each transaction and kept nowhere else, so they are right after a rollback and when another
// process has written too.
int RecordWriter::Begin() {
  if (const int code = Run(begin_).Finish(); code != SQLITE_OK) return code;
  Run sequence(last_sequence_);
  if (const int code = sequence.Step(); code != SQLITE_ROW) return code;
  next_sequence_ = sequence.Number(0) + 1;
  Run number(last_item_number_);
  const int code = number.Step();
  if (code != SQLITE_ROW && code != SQLITE_DONE) return code;
  next_item_number_ = code == SQLITE_ROW ? number.Number(0) + 1 : 1;
  return SQLITE_OK;
}

int RecordWriter::FindSeries(const QueuedRecord& record, std::int64_t& series) {
  const auto bind = [&](Run& run) -> Run& {
    return run.Bind(1, static_cast<std::int64_t>(record.kind)).Bind(2, record.dataset_id).Bind(3, record.item_id);
  };
  Run find(find_series_);
  int code = bind(find).Step();
  if (code == SQLITE_ROW) {
    series = find.Number(0);
    return SQLITE_OK;
  }
  if (code != SQLITE_DONE) return code;
  Run add(add_series_);
  code = bind(add).Finish();
  series = sqlite3_last_insert_rowid(database_.handle());
  return code;
}

int RecordWriter::Insert(const QueuedRecord& record, std::int64_t now_seconds) {
  std::int64_t series = 0;
  if (const int code = FindSeries(record, series); code != SQLITE_OK) return code;
  const bool is_item = record.kind == RecordKind::kItem;
  const std::int64_t number = is_item ? next_item_number_ : next_sequence_;
  const int code = Run(insert_)
                       .Bind(1, next_sequence_)
                       .Bind(2, series)
                       .Bind(3, number)
                       .Bind(4, now_seconds)
                       .Bind(5, record.json)
                       .Finish();
  ++next_sequence_;
  if (is_item) ++next_item_number_;
  return code;
}

}  // namespace TVK
