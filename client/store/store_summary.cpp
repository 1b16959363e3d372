#include "client/store/store_summary.h"

#include <system_error>

#include "client/store/sqlite_database.h"
#include "client/store/store_file.h"

namespace TVK {
namespace {

// By each series' index: no record is looked at but its last one.
constexpr char kLast[] =
    "SELECT dataset_id, max(last) FROM (SELECT s.dataset_id, (SELECT r.written FROM record r WHERE r.series = s.id"
    " ORDER BY r.number DESC LIMIT 1) AS last FROM series s) WHERE last IS NOT NULL GROUP BY dataset_id";
// Below are the placeholders of contexts that were lost.
constexpr char kOldest[] = "SELECT '', written FROM record WHERE sequence > 0 ORDER BY sequence LIMIT 1";

template <typename Take>
int ForEachRow(Database& database, const char* sql, const Take& take) {
  Statement statement;
  int code = statement.Prepare(database, sql);
  if (code != SQLITE_OK) return code;
  Run run(statement);
  for (code = run.Step(); code == SQLITE_ROW; code = run.Step())
    take(std::string(run.Text(0)), run.Number(1));
  return code;
}

}  // namespace

std::uint64_t StoreBytes(const std::filesystem::path& file) {
  std::uint64_t all = 0;
  for (const char* const suffix : {"", "-wal"}) {
    std::filesystem::path part = file;
    std::error_code unknown;
    const std::uintmax_t bytes = std::filesystem::file_size(part += suffix, unknown);
    if (!unknown) all += bytes;
  }
  return all;
}

std::optional<StoreSummary> ReadStoreSummary(const std::filesystem::path& file, std::string& problem) {
  Database database;
  const StoreFileOpening opening = OpenStoreReadOnly(file, database);
  problem = opening.problem;
  if (opening.state != StoreFileState::kReady) return std::nullopt;
  StoreSummary summary;
  summary.bytes = StoreBytes(file);
  int code = ForEachRow(database, kLast, [&](const std::string& dataset, std::int64_t seconds) {
    summary.last_seconds_by_dataset[dataset] = seconds;
  });
  if (code == SQLITE_DONE) {
    code = ForEachRow(database, kOldest,
                      [&](const std::string&, std::int64_t seconds) { summary.oldest_seconds = seconds; });
  }
  if (code == SQLITE_DONE) return summary;
  problem = database.Message(code);
  return std::nullopt;
}

}  // namespace TVK
