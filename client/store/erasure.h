// Deleting records for good.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace TVK {

class Database;

/// What is to be deleted: the records that answer every condition. Absent: no such condition.
struct Erasure {
  std::optional<std::string> dataset_id = std::nullopt;  ///< Device contexts belong to no dataset.
  /// Taken by the store before then, seconds since 1970. One that is dated after `asked_seconds` was written by a wrong
  /// clock, nobody knows when: it goes with the first one behind it that is to go.
  std::optional<std::int64_t> before_seconds = std::nullopt;
  std::optional<std::int64_t> asked_seconds = std::nullopt;  ///< When it was asked for, seconds since 1970.
  /// The store's last record then (EventDataLogging::GetLastSequence): later ones stay, and so do those of a store that
  /// was begun anew since.
  std::optional<std::int64_t> through_sequence = std::nullopt;

  bool operator==(const Erasure&) const = default;
};

/// The place of the last record that the store wrote, whether it is still there or not; 0: it has written none. 0 or
/// SQLite's code; `sequence` is set with 0.
int ReadLastSequence(Database& database, std::int64_t& sequence);

/// How many records EraseRecords would delete. Needs a store of the newest version. 0 or SQLite's code; `count` is set
/// with 0.
int CountErasure(Database& database, const Erasure& erasure, std::uint64_t& count);

/// Deletes them, and with a whole dataset what it keeps (but how far it read a source, see dataset_state.h, and
/// where it has later records), then writes the file anew and empties the log of changes, so that no byte of them is
/// left in either. A context that a record names which stays is left; sequences and record ids are not used again.
/// Takes as long as writing what stays, and as much memory. 0, or SQLite's code (SQLITE_BUSY: somebody reads the old
/// state); what was done then stays done, and the same again does the rest. To be called outside of a transaction, on
/// the connection that writes. `count` is added to.
int EraseRecords(Database& database, const Erasure& erasure, std::uint64_t& count);

}  // namespace TVK
