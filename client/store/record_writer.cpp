#include "client/store/record_writer.h"

#include "client/store/event_data_logging.h"

namespace TVK {
namespace {

void SetResults(std::span<QueuedRecord* const> records, int code, const std::string& problem) {
  for (QueuedRecord* record : records) {
    if (code != SQLITE_OK || record->result != kStoreUnknownContext) record->result = code;
    record->problem = problem;
  }
}

}  // namespace

int RecordWriter::Prepare() {
  struct {
    Statement& statement;
    const char* sql;
  } const statements[] = {
      {begin_, "BEGIN IMMEDIATE"},
      {commit_, "COMMIT"},
      // Where records were erased, the state of no dataset knows how far the numbers went.
      {last_sequence_,
       "SELECT max(ifnull((SELECT max(sequence) FROM record), 0), ifnull((SELECT CAST(value AS INTEGER) FROM state"
       " WHERE dataset_id = '' AND key = 'sequence'), 0))"},
      // Read backwards from the newest record: there is an item event at once or after a few contexts.
      {last_item_number_,
       "SELECT max(ifnull((SELECT r.number FROM record r CROSS JOIN series s ON s.id = r.series WHERE s.kind = 0"
       " ORDER BY r.sequence DESC LIMIT 1), 0), ifnull((SELECT CAST(value AS INTEGER) FROM state"
       " WHERE dataset_id = '' AND key = 'number'), 0))"},
      {find_series_, "SELECT id FROM series WHERE kind = ?1 AND dataset_id = ?2 AND key = ?3"},
      {add_series_, "INSERT INTO series(kind, dataset_id, key) VALUES(?1, ?2, ?3)"},
      {find_context_,
       "SELECT r.sequence FROM record r CROSS JOIN series s ON s.id = r.series"
       " WHERE r.context_id = ?1 AND s.kind = ?2 ORDER BY r.sequence DESC LIMIT 1"},
      {insert_,
       "INSERT INTO record(sequence, series, number, written, dataset_context, device_context, context_id, json)"
       " VALUES(?1, ?2, ?3, ?4, nullif(?5, 0), nullif(?6, 0), nullif(?7, ''), ?8)"},
      {keep_state_, "REPLACE INTO state(dataset_id, key, value) VALUES(?1, ?2, ?3)"},
  };
  for (const auto& [statement, sql] : statements) {
    if (const int code = statement.Prepare(database_, sql); code != SQLITE_OK) return code;
  }
  return SQLITE_OK;
}

void RecordWriter::Write(std::span<QueuedRecord* const> contexts, std::span<QueuedRecord* const> records,
                         std::int64_t now_seconds) {
  int code = WriteTogether(contexts, records, now_seconds);
  // When not even a transaction could be begun, each by itself would only wait for the same answer.
  if (code == SQLITE_OK || !began_ || contexts.size() + records.size() <= 1) return;
  if (!contexts.empty()) code = WriteTogether(contexts, {}, now_seconds);
  if (!contexts.empty() && code != SQLITE_OK) return SetResults(records, code, contexts.front()->problem);
  for (QueuedRecord* const& record : records) {
    if (began_) {
      code = WriteTogether({}, {&record, 1}, now_seconds);
    } else {
      SetResults({&record, 1}, code, {});
    }
  }
}

int RecordWriter::WriteTogether(std::span<QueuedRecord* const> contexts, std::span<QueuedRecord* const> records,
                                std::int64_t now_seconds) {
  int code = Begin();
  began_ = code == SQLITE_OK;
  for (const auto& part : {contexts, records}) {
    for (QueuedRecord* record : part) {
      if (code == SQLITE_OK) code = Insert(*record, now_seconds);
    }
  }
  if (code == SQLITE_OK) code = Run(commit_).Finish();
  const std::string problem = code == SQLITE_OK ? "" : database_.Message(code);
  if (code != SQLITE_OK) database_.Rollback();
  SetResults(contexts, code, problem);
  SetResults(records, code, problem);
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
  if (const int code = number.Step(); code != SQLITE_ROW) return code;
  next_item_number_ = number.Number(0) + 1;
  return SQLITE_OK;
}

int RecordWriter::FindSeries(const RecordRow& row, std::int64_t& series) {
  const auto bind = [&](Run& run) -> Run& {
    return run.Bind(1, static_cast<std::int64_t>(row.kind)).Bind(2, row.dataset_id).Bind(3, row.key);
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

// Gives 0 for the empty id, kStoreUnknownContext when there is no such context.
int RecordWriter::FindReference(RecordKind kind, const std::string& context_id, std::int64_t& sequence) {
  sequence = 0;
  if (context_id.empty()) return SQLITE_OK;
  Run find(find_context_);
  const int code = find.Bind(1, context_id).Bind(2, static_cast<std::int64_t>(kind)).Step();
  if (code == SQLITE_DONE) return kStoreUnknownContext;
  if (code != SQLITE_ROW) return code;
  sequence = find.Number(0);
  return SQLITE_OK;
}

std::int64_t RecordWriter::FindContext(RecordKind kind, const std::string& context_id) {
  std::int64_t sequence = 0;
  return FindReference(kind, context_id, sequence) == SQLITE_OK ? sequence : 0;
}

// What the transaction goes on with: a record that is refused is no failure of it.
int RecordWriter::Insert(QueuedRecord& record, std::int64_t now_seconds) {
  record.result = QueuedRecord::kNotWritten;
  if (!record.row.is_record()) return KeepState(record.row);
  record.sequence = next_sequence_;
  int code = InsertRow(record.row, now_seconds);
  if (code == kStoreUnknownContext && record.more.empty()) {
    record.result = code;
    return SQLITE_OK;
  }
  for (const RecordRow& row : record.more) {
    if (code == SQLITE_OK) code = InsertRow(row, now_seconds);
  }
  return code;
}

int RecordWriter::InsertRow(const RecordRow& row, std::int64_t now_seconds) {
  std::int64_t dataset_context = 0;
  std::int64_t device_context = 0;
  int code = FindReference(RecordKind::kDataset, row.dataset_context_id, dataset_context);
  if (code == SQLITE_OK) code = FindReference(RecordKind::kDevice, row.device_context_id, device_context);
  std::int64_t series = 0;
  if (code == SQLITE_OK) code = FindSeries(row, series);
  if (code != SQLITE_OK) return code;
  const bool is_item = row.kind == RecordKind::kItem;
  const std::int64_t number = is_item ? next_item_number_ : next_sequence_;
  code = Run(insert_)
             .Bind(1, next_sequence_)
             .Bind(2, series)
             .Bind(3, number)
             .Bind(4, now_seconds)
             .Bind(5, dataset_context)
             .Bind(6, device_context)
             .Bind(7, row.context_id)
             .Bind(8, row.json)
             .Finish();
  if (code == SQLITE_OK) code = KeepState(row);
  ++next_sequence_;
  if (is_item) ++next_item_number_;
  return code;
}

int RecordWriter::KeepState(const RecordRow& row) {
  if (row.state_key.empty()) return SQLITE_OK;
  return Run(keep_state_).Bind(1, row.dataset_id).Bind(2, row.state_key).Bind(3, row.state_value).Finish();
}

}  // namespace TVK
