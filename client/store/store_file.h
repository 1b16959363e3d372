// The store's file: what makes it ours, its tables and their history, and what happens to a damaged one.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>

#include "client/store/sqlite_database.h"
#include "platform/clock.h"

namespace TVK {

/// The tables as this program reads and writes them (PRAGMA user_version).
///
/// series: one row for each kind of record, dataset id and item id (texts empty where the kind has none).
/// record: `sequence` counts all records, `number` the item events; contexts carry their sequence there. Both only
/// grow: retention never removes the newest record of a series, so the largest number stays in the table.
int NewestSchemaVersion();

enum class StoreFileState {
  kReady,
  kDamaged,      ///< No database, or a damaged one.
  kForeign,      ///< Somebody else's database, or of a newer version of ours: not to be touched.
  kMissing,      ///< There is no such file; only for readers, a writer makes it.
  kUnavailable,  ///< Cannot be opened, read or written now.
};

struct StoreFileOpening {
  StoreFileState state = StoreFileState::kUnavailable;
  std::string problem;  ///< Why it is not ready.
};

/// Opens the file for writing, makes it when there is none, and brings its tables to the newest version. The whole file
/// is checked first: some milliseconds for each 5 MiB.
StoreFileOpening OpenStoreForWriting(const std::filesystem::path& file, std::chrono::milliseconds busy_timeout,
                                     Database& database);

/// A further connection for reading, of a file that is ready.
int OpenStoreForQueries(const std::filesystem::path& file, std::chrono::milliseconds busy_timeout, Database& database);

/// Opens a store of another process for reading only; needs no right to write. Leaves no file behind that was not
/// there, where it may remove files.
StoreFileOpening OpenStoreReadOnly(const std::filesystem::path& file, Database& database);

/// Renames the file, and what belongs to it, to "NAME.corrupt-YYYYMMDDTHHMMSS" (local time; "-2" and so on behind it
/// when that exists). No connection may be open. Returns an empty text, or what went wrong; `new_name` receives the
/// name.
std::string SetAside(const std::filesystem::path& file, const platform::Clock& clock, std::filesystem::path& new_name);

}  // namespace TVK
