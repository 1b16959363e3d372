#include "client/store/store_schema.h"

#include <iterator>

namespace TVK {
namespace {

constexpr char kVersion1[] =
    "PRAGMA application_id = 1414941509;"
    "CREATE TABLE series(id INTEGER PRIMARY KEY, kind INTEGER NOT NULL, dataset_id TEXT NOT NULL,"
    " item_id TEXT NOT NULL, UNIQUE(kind, dataset_id, item_id));"
    "CREATE TABLE record(sequence INTEGER PRIMARY KEY, series INTEGER NOT NULL REFERENCES series(id),"
    " number INTEGER NOT NULL, written INTEGER NOT NULL, json TEXT NOT NULL);"
    "CREATE UNIQUE INDEX record_by_series ON record(series, number);"
    "PRAGMA user_version = 1;";
static_assert(kStoreApplicationId == 1414941509);

// The records go into a table whose references stand ahead of the long JSON texts, so that looking through them reads
// no more pages than need be. What a record names is read out of its JSON once, here.
constexpr char kVersion2[] =
    "ALTER TABLE series RENAME COLUMN item_id TO key;"
    // A row for each id that a record names, and for each context's own: kind 1 or 2, empty ids left out.
    "CREATE TEMP TABLE named AS"
    " SELECT r.sequence, s.kind AS record_kind, k.value AS kind,"
    "  json_extract(r.json, iif(k.value = 1, '$.dataset_context_id', '$.device_context_id')) AS id"
    " FROM record r CROSS JOIN series s ON s.id = r.series CROSS JOIN json_each('[1,2]') k"
    " WHERE json_valid(r.json) AND k.value >= s.kind;"
    "DELETE FROM temp.named WHERE typeof(id) <> 'text' OR id = '';"
    "CREATE INDEX temp.named_by_record ON named(sequence, kind);"
    "CREATE TEMP TABLE context AS SELECT kind, id, max(sequence) AS sequence FROM temp.named"
    " WHERE kind = record_kind GROUP BY kind, id;"
    "CREATE INDEX temp.context_by_id ON context(kind, id);"
    "CREATE TEMP TABLE lost AS SELECT n.kind, n.id, min(n.sequence) AS first,"
    " -(2 * min(n.sequence) + (n.kind = 2)) AS sequence"
    " FROM temp.named n WHERE NOT EXISTS (SELECT 1 FROM temp.context c WHERE c.kind = n.kind AND c.id = n.id)"
    " GROUP BY n.kind, n.id;"
    "INSERT INTO temp.context SELECT kind, id, sequence FROM temp.lost;"
    "CREATE TABLE record_2(sequence INTEGER PRIMARY KEY, series INTEGER NOT NULL REFERENCES series(id),"
    " number INTEGER NOT NULL, written INTEGER NOT NULL, dataset_context INTEGER REFERENCES record(sequence),"
    " device_context INTEGER REFERENCES record(sequence), context_id TEXT, json TEXT NOT NULL);"
    "INSERT INTO record_2 SELECT r.sequence, r.series, r.number, r.written,"
    " (SELECT c.sequence FROM temp.named n CROSS JOIN temp.context c ON c.kind = n.kind AND c.id = n.id"
    "  WHERE n.sequence = r.sequence AND n.kind = 1 AND n.record_kind < 1),"
    " (SELECT c.sequence FROM temp.named n CROSS JOIN temp.context c ON c.kind = n.kind AND c.id = n.id"
    "  WHERE n.sequence = r.sequence AND n.kind = 2 AND n.record_kind < 2),"
    " (SELECT n.id FROM temp.named n WHERE n.sequence = r.sequence AND n.kind = n.record_kind), r.json"
    " FROM record r ORDER BY r.sequence;"
    // The dataset of a lost context is that of the records which name it.
    "INSERT OR IGNORE INTO series(kind, dataset_id, key) SELECT l.kind, iif(l.kind = 1, s.dataset_id, ''), ''"
    " FROM temp.lost l JOIN record r ON r.sequence = l.first JOIN series s ON s.id = r.series;"
    "INSERT INTO record_2 SELECT l.sequence, t.id, l.sequence, r.written, NULL, NULL, l.id,"
    // A patch leaves out what is null.
    " json_patch('{}', iif(l.kind = 1,"
    "  json_object('dataset_context_id', l.id, 'dataset_context_datetime', r.json ->> 'item_time',"
    "   'dataset_id', r.json ->> 'dataset_id', 'dataset_name', r.json ->> 'dataset_name'),"
    "  json_object('device_context_id', l.id, 'device_context_datetime',"
    "   ifnull(r.json ->> 'item_time', r.json ->> 'dataset_context_datetime'))))"
    " FROM temp.lost l JOIN record r ON r.sequence = l.first JOIN series s ON s.id = r.series"
    " JOIN series t ON t.kind = l.kind AND t.dataset_id = iif(l.kind = 1, s.dataset_id, '') AND t.key = '';"
    "DROP TABLE record;"
    "ALTER TABLE record_2 RENAME TO record;"
    "CREATE UNIQUE INDEX record_by_series ON record(series, number);"
    "CREATE INDEX record_by_context_id ON record(context_id) WHERE context_id IS NOT NULL;"
    "CREATE TABLE state(dataset_id TEXT NOT NULL, key TEXT NOT NULL, value TEXT NOT NULL,"
    " PRIMARY KEY(dataset_id, key)) WITHOUT ROWID;"
    "DROP TABLE temp.named; DROP TABLE temp.context; DROP TABLE temp.lost;"
    "PRAGMA user_version = 2;";

// kUpgrades[n] makes version n + 1 of version n.
constexpr const char* kUpgrades[] = {kVersion1, kVersion2};
static_assert(std::size(kUpgrades) == kNewestSchemaVersion);

}  // namespace

int UpgradeSchema(Database& database, std::int64_t version) {
  int code = SQLITE_OK;
  for (; code == SQLITE_OK && version < kNewestSchemaVersion; ++version)
    code = database.Execute(kUpgrades[version]);
  return code;
}

}  // namespace TVK
