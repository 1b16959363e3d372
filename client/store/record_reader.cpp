#include "client/store/record_reader.h"

#include <algorithm>
#include <limits>

#include "client/store/sqlite_database.h"
#include "client/store/store_file.h"
#include "client/text/string.h"

namespace TVK {

class RecordReader::Impl {
 public:
  Database database;
  Statement change_counter;
};

RecordReader::RecordReader(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
RecordReader::~RecordReader() = default;

std::unique_ptr<RecordReader> RecordReader::Open(const std::filesystem::path& file, std::string& problem,
                                                 bool* no_store) {
  auto impl = std::make_unique<Impl>();
  const StoreFileOpening opening = OpenStoreReadOnly(file, impl->database);
  problem = opening.problem;
  if (opening.state == StoreFileState::kReady) {
    const int code = impl->change_counter.Prepare(impl->database, "PRAGMA data_version");
    if (code == SQLITE_OK) return std::unique_ptr<RecordReader>(new RecordReader(std::move(impl)));
    problem = impl->database.Message(code);
  }
  if (no_store != nullptr) {
    *no_store = opening.state == StoreFileState::kMissing || opening.state == StoreFileState::kForeign;
  }
  return nullptr;
}

bool RecordReader::Read(const RecordQuery& query, std::vector<StoredRecord>& records, std::string& problem) const {
  // Newest first, so that a limit ends the reading early.
  std::string sql =
      "SELECT r.sequence, s.kind, r.written, r.json,"
      " CASE WHEN json_valid(r.json) THEN json_type(r.json) = 'object' AND instr(r.json, char(10)) = 0 ELSE 0 END"
      " FROM record r CROSS JOIN series s ON s.id = r.series"
      " WHERE r.sequence > ?1";
  if (query.kind) sql += " AND s.kind = ?2";
  if (query.since_seconds) sql += " AND r.written >= ?3";
  if (query.dataset_name) {
    sql += " AND CASE WHEN json_valid(r.json) THEN r.json ->> 'dataset_name' END = ?4 COLLATE NOCASE";
  }
  sql += " ORDER BY r.sequence DESC LIMIT ?5";

  std::vector<StoredRecord> read;
  Statement statement;
  int code = statement.Prepare(impl_->database, sql);
  if (code == SQLITE_OK) {
    constexpr std::uint64_t kMost = std::numeric_limits<std::int64_t>::max();
    const std::string dataset_name = String::UTF16ToUTF8(query.dataset_name.value_or(L""));
    Run run(statement);
    run.Bind(1, query.after_sequence).Bind(5, static_cast<std::int64_t>(std::min(query.limit.value_or(kMost), kMost)));
    if (query.kind) run.Bind(2, static_cast<std::int64_t>(*query.kind));
    if (query.since_seconds) run.Bind(3, *query.since_seconds);
    if (query.dataset_name) run.Bind(4, dataset_name);
    for (code = run.Step(); code == SQLITE_ROW; code = run.Step()) {
      read.push_back({run.Number(0), static_cast<RecordKind>(run.Number(1)), run.Number(2), std::string(run.Text(3)),
                      run.Number(4) != 0});
    }
  }
  if (code != SQLITE_DONE) problem = impl_->database.Message(code);
  std::ranges::reverse(read);
  records = std::move(read);
  return code == SQLITE_DONE;
}

std::int64_t RecordReader::ChangeCounter() const {
  Run run(impl_->change_counter);
  return run.Step() == SQLITE_ROW ? run.Number(0) : 0;
}

bool RecordReader::FileHasMoved() const {
  return impl_->database.FileHasMoved();
}

}  // namespace TVK
