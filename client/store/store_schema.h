// The store's tables and their history.
#pragma once

#include <cstdint>

#include "client/store/sqlite_database.h"

namespace TVK {

/// What makes a database ours (PRAGMA application_id): "TVKE".
inline constexpr std::int64_t kStoreApplicationId = 0x54564B45;

/// The tables as this program writes them (PRAGMA user_version); 0 is a file without tables. A reader of records gets
/// along with every version from 1 on: the columns that it asks for are in all of them.
///
/// series: one row for each kind of record, dataset id and key (item id of item events, device key of dataset contexts,
/// texts empty where the kind has none).
/// record: `sequence` counts all records, `number` the item events; contexts carry their sequence there. Both only
/// grow: retention never removes the newest record of a series, so the largest number stays in the table.
/// `dataset_context` and `device_context` are the sequences of the contexts that the record names, NULL when it names
/// none; `context_id` is a context's own id.
/// Placeholders stand for contexts that version 1 could lose while records that name them were written: they have the
/// id, the dataset and the time of the first such record, and no facts. Their sequences are below 0, so that they stand
/// ahead of what names them and are the oldest of their series.
/// state: what the datasets' monitors keep from one life of the process to the next, of each key one value.
inline constexpr int kNewestSchemaVersion = 2;

/// Brings the tables from `version` to the newest one. To be called in a transaction; when it fails nothing may be
/// committed.
int UpgradeSchema(Database& database, std::int64_t version);

}  // namespace TVK
