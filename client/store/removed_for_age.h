// How far records were removed because they were too old, so that nobody takes that for a deletion that was asked for.
#pragma once

#include <cstdint>

namespace TVK {

class Database;

/// What went for its age, in all the time of the store.
struct RemovedForAge {
  std::int64_t last_sequence = 0;   ///< The largest one that went; 0: none did.
  std::int64_t before_seconds = 0;  ///< All of it was written before then, seconds since 1970; 0: nothing went.
};

/// To be called in the transaction that removes them, on the connection that writes. A clock that was set back takes
/// nothing from what was noted. 0 or SQLite's code.
int NoteRemovedForAge(Database& database, const RemovedForAge& removed);

/// 0 or SQLite's code, which a store of version 1 gives, where nothing is noted; `removed` is set with 0.
int ReadRemovedForAge(Database& database, RemovedForAge& removed);

}  // namespace TVK
