#include "client/store/store_queries.h"

#include "client/store/event_data_logging.h"

namespace TVK {
namespace {

// Rows of sequence, key and JSON.
int GiveRows(Run& run, const StoreQueries::Take& take, std::size_t& rows) {
  int code = run.Step();
  for (; code == SQLITE_ROW; code = run.Step(), ++rows)
    take({run.Number(0), run.Text(1), run.Text(2)});
  return code == SQLITE_DONE ? SQLITE_OK : code;
}

int GiveOne(Run& run, const StoreQueries::Take& take) {
  std::size_t rows = 0;
  const int code = GiveRows(run, take, rows);
  return code == SQLITE_OK && rows == 0 ? kStoreNotFound : code;
}

}  // namespace

int StoreQueries::Prepare() {
  struct {
    Statement& statement;
    const char* sql;
  } const statements[] = {
      {last_item_,
       "SELECT sequence, ?2, json FROM record WHERE series ="
       " (SELECT id FROM series WHERE kind = 0 AND dataset_id = ?1 AND key = ?2)"
       " ORDER BY number DESC LIMIT 1"},
      {last_of_any_dataset_,
       "SELECT sequence, ?1, json FROM record WHERE sequence = (SELECT max("
       " (SELECT r.sequence FROM record r WHERE r.series = s.id ORDER BY r.number DESC LIMIT 1))"
       " FROM series s WHERE s.kind = 0 AND s.key = ?1)"},
      {contexts_of_device_,
       "SELECT sequence, ?3, json FROM record WHERE series ="
       " (SELECT id FROM series WHERE kind = ?1 AND dataset_id = ?2 AND key = ?3)"
       " ORDER BY number DESC LIMIT ?4"},
      {contexts_of_dataset_,
       "SELECT r.sequence, s.key, r.json FROM series s CROSS JOIN record r ON r.series = s.id"
       " WHERE s.kind = ?1 AND s.dataset_id = ?2"
       " ORDER BY r.number DESC LIMIT ?3"},
      {device_context_,
       "SELECT r.sequence, s.key, r.json FROM record r CROSS JOIN series s ON s.id = r.series"
       " WHERE r.context_id = ?1 AND s.kind = 2"
       " ORDER BY r.sequence DESC LIMIT 1"},
      {state_, "SELECT value FROM state WHERE dataset_id = ?1 AND key = ?2"},
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

int StoreQueries::LastItem(std::string_view dataset_id, std::string_view item_id, const Take& take) {
  Run run(last_item_);
  return GiveOne(run.Bind(1, dataset_id).Bind(2, item_id), take);
}

int StoreQueries::LastItemOfAnyDataset(std::string_view item_id, const Take& take) {
  Run run(last_of_any_dataset_);
  return GiveOne(run.Bind(1, item_id), take);
}

int StoreQueries::LastContexts(RecordKind kind, std::string_view dataset_id, const std::optional<std::string>& key,
                               std::size_t at_most, const Take& take) {
  Run run(key ? contexts_of_device_ : contexts_of_dataset_);
  run.Bind(1, static_cast<std::int64_t>(kind)).Bind(2, dataset_id);
  if (key) run.Bind(3, *key);
  run.Bind(key ? 4 : 3, static_cast<std::int64_t>(at_most));
  std::size_t rows = 0;
  return GiveRows(run, take, rows);
}

int StoreQueries::DeviceContextById(std::string_view device_context_id, const Take& take) {
  Run run(device_context_);
  return GiveOne(run.Bind(1, device_context_id), take);
}

int StoreQueries::State(std::string_view dataset_id, std::string_view key, std::string& value) {
  Run run(state_);
  const int code = run.Bind(1, dataset_id).Bind(2, key).Step();
  if (code == SQLITE_ROW) value = run.Text(0);
  return code == SQLITE_ROW ? SQLITE_OK : code == SQLITE_DONE ? kStoreNotFound : code;
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
