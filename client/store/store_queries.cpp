#include "client/store/store_queries.h"

#include "client/store/event_data_logging.h"

namespace TVK {
namespace {

// The first column of the first row.
int ReadJson(Run& run, std::string& json) {
  const int code = run.Step();
  if (code == SQLITE_DONE) return kStoreNotFound;
  if (code != SQLITE_ROW) return code;
  json = run.Text(0);
  return SQLITE_OK;
}

}  // namespace

int StoreQueries::Prepare() {
  struct {
    Statement& statement;
    const char* sql;
  } const statements[] = {
      {last_,
       "SELECT json FROM record WHERE series ="
       " (SELECT id FROM series WHERE kind = ?1 AND dataset_id = ?2 AND item_id = ?3)"
       " ORDER BY number DESC LIMIT 1"},
      {last_of_any_dataset_,
       "SELECT json FROM record WHERE sequence = (SELECT max("
       " (SELECT r.sequence FROM record r WHERE r.series = s.id ORDER BY r.number DESC LIMIT 1))"
       " FROM series s WHERE s.kind = 0 AND s.item_id = ?1)"},
      {device_context_,
       "SELECT r.json FROM series s CROSS JOIN record r ON r.series = s.id"
       " WHERE s.kind = 2 AND CASE WHEN json_valid(r.json) THEN r.json ->> 'device_context_id' END = ?1"
       " ORDER BY r.number DESC LIMIT 1"},
      {items_,
       "SELECT number, json FROM record"
       " WHERE series IN (SELECT id FROM series WHERE kind = 0 AND dataset_id = ?1) AND number >= ?2 AND number < ?3"
       " ORDER BY number"},
  };
  for (const auto& [statement, sql] : statements) {
    if (const int code = statement.Prepare(database_, sql); code != SQLITE_OK) return code;
  }
  return SQLITE_OK;
}

int StoreQueries::Last(RecordKind kind, std::string_view dataset_id, std::string_view item_id, std::string& json) {
  Run run(last_);
  run.Bind(1, static_cast<std::int64_t>(kind)).Bind(2, dataset_id).Bind(3, item_id);
  return ReadJson(run, json);
}

int StoreQueries::LastItemOfAnyDataset(std::string_view item_id, std::string& json) {
  Run run(last_of_any_dataset_);
  return ReadJson(run.Bind(1, item_id), json);
}

int StoreQueries::DeviceContextById(std::string_view device_context_id, std::string& json) {
  Run run(device_context_);
  return ReadJson(run.Bind(1, device_context_id), json);
}

int StoreQueries::Items(std::string_view dataset_id, std::int64_t first, std::int64_t end,
                        const std::function<void(std::int64_t id, std::string_view json)>& take) {
  Run run(items_);
  run.Bind(1, dataset_id).Bind(2, first).Bind(3, end);
  int code = run.Step();
  for (; code == SQLITE_ROW; code = run.Step())
    take(run.Number(0), run.Text(1));
  return code == SQLITE_DONE ? SQLITE_OK : code;
}

}  // namespace TVK
