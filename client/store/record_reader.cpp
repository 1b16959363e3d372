#include "client/store/record_reader.h"

#include <algorithm>
#include <limits>

#include "client/store/erasure.h"
#include "client/store/sqlite_database.h"
#include "client/store/store_file.h"
#include "client/text/string.h"

namespace TVK {
namespace {

// What is read at a time, until one of the two is reached: little enough that the first row is there at once.
constexpr std::size_t kRecordsAtATime = 256;
constexpr std::size_t kBytesAtATime = std::size_t{256} << 10;

// The columns are in every version from 1 on.
// By the table itself, which a damaged index does not spoil.
constexpr char kSeries[] = "SELECT id, kind FROM series NOT INDEXED";
// What a series tells of has one name: that of its newest record that can be read.
constexpr char kSeriesName[] =
    "SELECT json ->> ?2 FROM record WHERE series = ?1 AND json_valid(json) ORDER BY number DESC LIMIT 1";
constexpr char kDatasetName[] = "dataset_name";
constexpr char kItemName[] = "item_name";

StoreAccess AccessOf(const StoreFileOpening& opening) {
  switch (opening.state) {
    case StoreFileState::kReady:
      return StoreAccess::kOpen;
    case StoreFileState::kMissing:
      return StoreAccess::kMissing;
    case StoreFileState::kForeign:
      return StoreAccess::kForeign;
    case StoreFileState::kNewer:
      return StoreAccess::kNewer;
    case StoreFileState::kDenied:
      return StoreAccess::kDenied;
    default:
      return StoreAccess::kFailed;
  }
}

}  // namespace

class RecordReader::Impl {
 public:
  using Take = RecordReader::Take;
  using Names = std::map<std::int64_t, std::string>;

  int LoadKinds() {
    kinds_.clear();
    Statement statement;
    if (const int code = statement.Prepare(database, kSeries); code != SQLITE_OK) return code;
    Run run(statement);
    int code = run.Step();
    for (; code == SQLITE_ROW; code = run.Step())
      kinds_[run.Number(0)] = static_cast<RecordKind>(run.Number(1));
    return code == SQLITE_DONE ? SQLITE_OK : code;
  }

  // By series, of those that have such a name. One that cannot be read is left out, and `problem` says why.
  Names ReadNames(const char* key, std::string& problem) {
    Names names;
    Statement statement;
    int code = statement.Prepare(database, kSeriesName);
    for (const auto& [series, kind] : kinds_) {
      if (kind == RecordKind::kDevice || (code != SQLITE_OK && code != SQLITE_DONE && code != SQLITE_ROW)) continue;
      Run run(statement);
      const int step = run.Bind(1, series).Bind(2, std::string_view(key)).Step();
      if (step == SQLITE_ROW && !run.Text(0).empty()) names[series] = run.Text(0);
      if (step != SQLITE_ROW && step != SQLITE_DONE) problem = database.Message(step);
    }
    return names;
  }

  Names NamesBySeries(const char* key) {
    std::string ignored;
    return LoadKinds() == SQLITE_OK ? ReadNames(key, ignored) : Names();
  }

  // The records that a query asks for, in one of two orders: those up to `last`, or all from the newest one down, which
  // needs nothing of the tree that leads to the records but its outermost branch.
  std::string Sql(const RecordQuery& query, bool descending, bool bounded, std::string& problem) {
    std::string sql = "SELECT sequence, series, written, json FROM record WHERE sequence >= ?1";
    if (bounded) sql += " AND sequence <= ?2";
    if (query.kind || query.dataset_name) {
      const Names names = query.dataset_name ? ReadNames(kDatasetName, problem) : Names();
      std::string list;
      for (const auto& [series, kind] : kinds_) {
        if (query.kind && *query.kind != kind) continue;
        if (query.dataset_name && !Named(names, series, *query.dataset_name)) continue;
        list += (list.empty() ? "" : ",") + std::to_string(series);
      }
      // The sign keeps it from an index by which the records would come in another order.
      sql += " AND +series IN (" + list + ')';
    }
    if (query.since_seconds) sql += " AND written >= ?3";
    if (query.until_seconds) sql += " AND written <= ?4";
    if (query.item_name) sql += " AND CASE WHEN json_valid(json) THEN json ->> 'item_name' END = ?5 COLLATE NOCASE";
    return sql + " ORDER BY sequence" + (descending ? " DESC" : "");
  }

  struct Conditions {
    const RecordQuery& query;
    std::string item_name;
    std::int64_t first;
    std::int64_t last;

    void Bind(Run& run, bool bounded) const {
      run.Bind(1, first);
      if (bounded) run.Bind(2, last);
      if (query.since_seconds) run.Bind(3, *query.since_seconds);
      if (query.until_seconds) run.Bind(4, *query.until_seconds);
      if (query.item_name) run.Bind(5, item_name);
    }
  };

  // The next ones, at most `count`, of a bounded statement; SQLITE_ROW: there may be more. With a failure `batch` has
  // what was read before.
  int ReadBatch(Statement& statement, const Conditions& conditions, std::uint64_t count,
                std::vector<StoredRecord>& batch, std::size_t& size) {
    Run run(statement);
    conditions.Bind(run, true);
    size = 0;
    int code = SQLITE_ROW;
    for (std::size_t bytes = 0; size < std::min<std::uint64_t>(count, kRecordsAtATime) && bytes < kBytesAtATime;
         ++size) {
      code = run.Step();
      if (code != SQLITE_ROW) break;
      if (size == batch.size()) batch.emplace_back();
      Fill(batch[size], run);
      bytes += batch[size].json.size();
    }
    return code;
  }

  // Gives the newest ones, newest first, at most `count`, to `take`. SQLITE_ROW or SQLITE_DONE, or the failure that
  // ended it.
  template <typename TakeRow>
  int ReadFromNewest(Statement& statement, const Conditions& conditions, std::uint64_t count, const TakeRow& take) {
    Run run(statement);
    conditions.Bind(run, false);
    int code = SQLITE_ROW;
    while (count > 0 && (code = run.Step()) == SQLITE_ROW) {
      if (run.Number(0) > conditions.last) continue;
      take(run);
      --count;
    }
    return code;
  }

  // What can still be read where reading in order failed: from the newest one down, to the damage.
  void Rescue(Statement& backward, const Conditions& conditions, std::uint64_t count, const Take& take) {
    std::vector<StoredRecord> records;
    static_cast<void>(
        ReadFromNewest(backward, conditions, count, [&](const Run& run) { Fill(records.emplace_back(), run); }));
    if (!conditions.query.newest_first) std::ranges::reverse(records);
    if (!records.empty()) take(records);
  }

  Database database;
  Statement change_counter;

 private:
  void Fill(StoredRecord& record, const Run& run) const {
    record.sequence = run.Number(0);
    record.series = run.Number(1);
    record.kind = KindOf(record.series);
    record.written_seconds = run.Number(2);
    record.json = run.Text(3);
  }

  // A series that came after they were loaded has none of the records that are read.
  RecordKind KindOf(std::int64_t series) const {
    const auto kind = kinds_.find(series);
    return kind == kinds_.end() ? RecordKind::kItem : kind->second;
  }

  static bool Named(const Names& names, std::int64_t series, const std::wstring& name) {
    const auto found = names.find(series);
    return found != names.end() && String::CaseInsesitiveEqual(String::UTF8ToUTF16(found->second), name);
  }

  std::map<std::int64_t, RecordKind> kinds_;  ///< By series.
};

RecordReader::RecordReader(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
RecordReader::~RecordReader() = default;

std::unique_ptr<RecordReader> RecordReader::Open(const std::filesystem::path& file, std::string& problem,
                                                 StoreAccess* access) {
  auto impl = std::make_unique<Impl>();
  StoreFileOpening opening = OpenStoreReadOnly(file, impl->database);
  if (opening.state == StoreFileState::kReady) {
    const int code = impl->change_counter.Prepare(impl->database, "PRAGMA data_version");
    if (code != SQLITE_OK) opening = {StoreFileState::kUnavailable, impl->database.Message(code), code};
  }
  problem = opening.problem;
  if (access != nullptr) *access = AccessOf(opening);
  if (opening.state != StoreFileState::kReady) return nullptr;
  return std::unique_ptr<RecordReader>(new RecordReader(std::move(impl)));
}

bool RecordReader::Read(const RecordQuery& query, const Take& take, std::string& problem) const {
  std::string found_problem;
  // The end first: a record up to it has its series among those that are loaded then.
  const std::int64_t newest = std::min(query.last_sequence, NewestSequence());
  if (query.after_sequence >= newest) return true;
  Impl::Conditions conditions{query, String::UTF16ToUTF8(query.item_name.value_or(L"")), query.after_sequence + 1,
                              newest};
  Statement in_order;
  Statement backward;
  int code = impl_->LoadKinds();
  if (code == SQLITE_OK) {
    code = in_order.Prepare(impl_->database, impl_->Sql(query, query.newest_first, true, found_problem));
  }
  if (code == SQLITE_OK) code = backward.Prepare(impl_->database, impl_->Sql(query, true, false, found_problem));
  if (code != SQLITE_OK) {
    problem = impl_->database.Message(code);
    return false;
  }
  std::uint64_t left = query.limit.value_or(std::numeric_limits<std::uint64_t>::max());
  code = SQLITE_ROW;
  if (query.limit && !query.newest_first) {
    std::int64_t begin = newest;
    code = impl_->ReadFromNewest(backward, conditions, left, [&](const Run& run) { begin = run.Number(0); });
    if (code == SQLITE_DONE) code = SQLITE_ROW;
    if (code == SQLITE_ROW) conditions.first = begin;
  }
  std::vector<StoredRecord> batch;
  while (code == SQLITE_ROW && left > 0) {
    std::size_t size = 0;
    code = impl_->ReadBatch(in_order, conditions, left, batch, size);
    if (size == 0) break;
    left -= size;
    const std::int64_t reached = batch[size - 1].sequence;
    (query.newest_first ? conditions.last : conditions.first) = query.newest_first ? reached - 1 : reached + 1;
    if (!take({batch.data(), size})) return true;
  }
  if (code != SQLITE_ROW && code != SQLITE_DONE) {
    found_problem = impl_->database.Message(code);
    impl_->Rescue(backward, conditions, left, take);
  }
  if (!found_problem.empty()) problem = found_problem;
  return found_problem.empty();
}

std::int64_t RecordReader::NewestSequence() const {
  std::int64_t newest = std::numeric_limits<std::int64_t>::max();
  static_cast<void>(impl_->database.ReadNumber("SELECT max(sequence) FROM record", newest));
  return newest;
}

std::int64_t RecordReader::LastWrittenSequence() const {
  std::int64_t last = 0;
  return ReadLastSequence(impl_->database, last) == SQLITE_OK ? last : 0;
}

RemovedForAge RecordReader::LastRemovedForAge() const {
  RemovedForAge removed;
  static_cast<void>(ReadRemovedForAge(impl_->database, removed));
  return removed;
}

std::map<std::int64_t, std::string> RecordReader::DatasetNames() const {
  return impl_->NamesBySeries(kDatasetName);
}

std::map<std::int64_t, std::string> RecordReader::ItemNames() const {
  return impl_->NamesBySeries(kItemName);
}

std::int64_t RecordReader::ChangeCounter() const {
  Run run(impl_->change_counter);
  return run.Step() == SQLITE_ROW ? run.Number(0) : 0;
}

bool RecordReader::FileHasMoved() const {
  return impl_->database.FileHasMoved();
}

}  // namespace TVK
