// The store's file: what makes it ours, how it is opened, and what happens to a damaged one.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>

#include "client/store/sqlite_database.h"
#include "platform/clock.h"

namespace TVK {

enum class StoreFileState {
  kReady,
  kDamaged,      ///< Ours, and damaged; every byte of it could be read.
  kForeign,      ///< Somebody else's file: not to be touched.
  kNewer,        ///< Of a newer version of ours: not to be touched.
  kMissing,      ///< There is no such file, or an empty one; only for readers, a writer makes the store.
  kDenied,       ///< This account may not read it; only for readers.
  kUnavailable,  ///< Cannot be opened, read or written now.
};

struct StoreFileOpening {
  StoreFileState state = StoreFileState::kUnavailable;
  std::string problem;  ///< Why it is not ready; of a ready one, what was strange about it.
  int code = 0;         ///< SQLite's, where an operation of it failed.
};

/// What the failure `code` of an operation on `database`, the last one, says of its file. SQLite takes some reads that
/// failed for damage, so damage counts only where the whole file can be read.
StoreFileOpening FailedOpening(int code, Database& database);

/// Opens the file for writing, makes it when there is none, and brings its tables to the newest version, all of it or
/// nothing. The whole file is checked first: some milliseconds for each 5 MiB. A file without a byte was
/// cut to nothing, or its making was: where changes beside it are still to be brought into it, it is damaged, else it
/// is begun anew and `problem` says so.
/// One that is not ours keeps its permissions, too, and nothing is made beside it.
StoreFileOpening OpenStoreForWriting(const std::filesystem::path& file, std::chrono::milliseconds busy_timeout,
                                     Database& database);

/// A further connection for reading, of a file that is ready.
int OpenStoreForQueries(const std::filesystem::path& file, std::chrono::milliseconds busy_timeout, Database& database);

/// Opens a store of another process for reading only, of any version up to the newest; needs no right to write. Leaves
/// no file behind that was not there, where it may remove files.
StoreFileOpening OpenStoreReadOnly(const std::filesystem::path& file, Database& database);

/// Renames the file, and what belongs to it, to "NAME.corrupt-YYYYMMDDTHHMMSS" (local time; "-2" and so on behind it
/// when that exists). The file goes first; what was left of it by a kill, or a rename that failed, follows it under the
/// same name at the next call. No connection may be open. Returns an empty text, or what went wrong; `new_name`
/// receives the name.
std::string SetAside(const std::filesystem::path& file, const platform::Clock& clock, std::filesystem::path& new_name);

}  // namespace TVK
