#include "client/store/erasure.h"

#include <limits>
#include <string>

#include "client/store/sqlite_database.h"

namespace TVK {
namespace {

// What the record `r` of the series `s` must answer to go; ?1 is empty for those of every dataset.
constexpr char kDoomed[] =
    "((?1 = '' OR s.dataset_id = ?1) AND r.sequence <= ?3 AND (r.written < ?2 OR (r.written > ?4 AND r.sequence < "
    "?5)))";
// Of contexts: that no record names. Item events go ahead of dataset contexts, those ahead of device contexts.
constexpr char kUnnamed[] =
    " AND r.sequence NOT IN (SELECT dataset_context FROM record WHERE dataset_context IS NOT NULL"
    " UNION ALL SELECT device_context FROM record WHERE device_context IS NOT NULL)";
constexpr int kKinds = 3;

constexpr std::int64_t kFar = std::numeric_limits<std::int64_t>::max();

// The counters of the writer, which reads them here where the records that had the numbers are gone.
constexpr char kKeepCounters[] =
    "INSERT OR REPLACE INTO state SELECT '', 'sequence', max(ifnull(max(sequence), 0),"
    "  ifnull((SELECT CAST(value AS INTEGER) FROM state WHERE dataset_id = '' AND key = 'sequence'), 0)) FROM record;"
    "INSERT OR REPLACE INTO state SELECT '', 'number', max(ifnull(max(r.number), 0),"
    "  ifnull((SELECT CAST(value AS INTEGER) FROM state WHERE dataset_id = '' AND key = 'number'), 0))"
    " FROM record r JOIN series s ON s.id = r.series WHERE s.kind = 0;";

// The values of kDoomed.
class Conditions {
 public:
  explicit Conditions(const Erasure& erasure)
      : dataset_id_(erasure.dataset_id.value_or("")),
        before_(erasure.before_seconds.value_or(kFar)),
        asked_(erasure.asked_seconds.value_or(kFar)),
        through_(erasure.through_sequence.value_or(kFar)) {}

  // Ahead of everything that is deleted.
  int Read(Database& database) {
    Statement statement;
    if (const int code = statement.Prepare(database, "SELECT ifnull(max(sequence), 0) FROM record WHERE written < ?1");
        code != SQLITE_OK) {
      return code;
    }
    Run run(statement);
    const int code = run.Bind(1, before_).Step();
    if (code != SQLITE_ROW) return code;
    last_old_ = run.Number(0);
    return SQLITE_OK;
  }

  Run& Bind(Run& run) const {
    return run.Bind(1, std::string_view(dataset_id_))
        .Bind(2, before_)
        .Bind(3, through_)
        .Bind(4, asked_)
        .Bind(5, last_old_);
  }

 private:
  const std::string dataset_id_;
  const std::int64_t before_;
  const std::int64_t asked_;
  const std::int64_t through_;
  std::int64_t last_old_ = 0;  ///< The last one of before the time.
};

int DeleteRecords(Database& database, const Erasure& erasure, std::uint64_t& count) {
  Conditions conditions(erasure);
  int code = conditions.Read(database);
  if (code == SQLITE_OK) code = database.Execute(kKeepCounters);
  std::uint64_t deleted = 0;
  for (int kind = 0; kind < kKinds && code == SQLITE_OK; ++kind) {
    Statement statement;
    code =
        statement.Prepare(database, std::string("DELETE FROM record WHERE sequence IN (SELECT r.sequence FROM record r"
                                                " CROSS JOIN series s ON s.id = r.series WHERE s.kind = ") +
                                        std::to_string(kind) + " AND " + kDoomed + (kind == 0 ? "" : kUnnamed) + ')');
    if (code != SQLITE_OK) return code;
    Run run(statement);
    code = conditions.Bind(run).Finish();
    if (code == SQLITE_OK) deleted += static_cast<std::uint64_t>(sqlite3_changes(database.handle()));
  }
  if (code == SQLITE_OK && !erasure.before_seconds) {
    Statement statement;
    code = statement.Prepare(database,
                             // Of the store's own states only the counters are needed with nothing left.
                             "DELETE FROM state WHERE (?1 = '' OR dataset_id = ?1)"
                             " AND (dataset_id <> '' OR key NOT IN ('sequence', 'number'))"
                             // The reading places of dataset_state.h.
                             " AND key NOT IN ('bookmark', 'interruption') AND key NOT GLOB 'memory *'"
                             " AND dataset_id NOT IN (SELECT s.dataset_id FROM record r CROSS JOIN series s"
                             " ON s.id = r.series WHERE r.sequence > ?2)");
    if (code != SQLITE_OK) return code;
    code = Run(statement)
               .Bind(1, std::string_view(erasure.dataset_id ? *erasure.dataset_id : ""))
               .Bind(2, erasure.through_sequence.value_or(kFar))
               .Finish();
  }
  // Their keys tell of devices.
  if (code == SQLITE_OK) code = database.Execute("DELETE FROM series WHERE id NOT IN (SELECT series FROM record)");
  if (code == SQLITE_OK) count += deleted;
  return code;
}

}  // namespace

int ReadLastSequence(Database& database, std::int64_t& sequence) {
  return database.ReadNumber(
      "SELECT max(ifnull((SELECT max(sequence) FROM record), 0), ifnull((SELECT CAST(value AS INTEGER) FROM state"
      " WHERE dataset_id = '' AND key = 'sequence'), 0))",
      sequence);
}

int CountErasure(Database& database, const Erasure& erasure, std::uint64_t& count) {
  Conditions conditions(erasure);
  int code = conditions.Read(database);
  if (code != SQLITE_OK) return code;
  Statement statement;
  code = statement.Prepare(
      database, std::string("WITH each AS (SELECT r.sequence AS place, s.kind AS kind, r.dataset_context AS dataset,"
                            " r.device_context AS device, ") +
                    kDoomed +
                    " AS doomed FROM record r CROSS JOIN series s ON s.id = r.series),"
                    " named AS (SELECT dataset FROM each WHERE kind = 0 AND NOT doomed AND dataset IS NOT NULL),"
                    " kept AS (SELECT device FROM each WHERE device IS NOT NULL AND (NOT doomed"
                    "  OR (kind = 1 AND place IN (SELECT dataset FROM named))))"
                    " SELECT count(*) FROM each WHERE doomed AND (kind = 0"
                    "  OR (kind = 1 AND place NOT IN (SELECT dataset FROM named))"
                    "  OR (kind = 2 AND place NOT IN (SELECT device FROM kept)))");
  if (code != SQLITE_OK) return code;
  Run run(statement);
  code = conditions.Bind(run).Step();
  if (code != SQLITE_ROW) return code;
  count = static_cast<std::uint64_t>(run.Number(0));
  return SQLITE_OK;
}

int EraseRecords(Database& database, const Erasure& erasure, std::uint64_t& count) {
  std::int64_t last = 0;
  int code = ReadLastSequence(database, last);
  if (code != SQLITE_OK || last < erasure.through_sequence.value_or(0)) return code;  // begun anew: nothing is meant
  code = database.Execute("PRAGMA secure_delete = ON; BEGIN IMMEDIATE");
  if (code == SQLITE_OK) code = DeleteRecords(database, erasure, count);
  if (code == SQLITE_OK) code = database.Execute("COMMIT");
  if (code != SQLITE_OK) {
    database.Rollback();
    return code;
  }
  // What retention deleted earlier has left its bytes in the file, too: only a file that is written anew has none.
  code = database.Execute("VACUUM");
  std::int64_t busy = 0;
  if (code == SQLITE_OK) code = database.ReadNumber("PRAGMA wal_checkpoint(TRUNCATE)", busy);
  return code == SQLITE_OK && busy != 0 ? SQLITE_BUSY : code;
}

}  // namespace TVK
