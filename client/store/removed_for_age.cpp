#include "client/store/removed_for_age.h"

#include <algorithm>

#include "client/store/sqlite_database.h"

namespace TVK {

int NoteRemovedForAge(Database& database, const RemovedForAge& removed) {
  RemovedForAge before;
  int code = ReadRemovedForAge(database, before);
  if (code != SQLITE_OK) return code;
  Statement statement;
  code = statement.Prepare(database, "INSERT OR REPLACE INTO state VALUES('', 'aged', ?1), ('', 'aged before', ?2)");
  if (code != SQLITE_OK) return code;
  return Run(statement)
      .Bind(1, std::max(removed.last_sequence, before.last_sequence))
      .Bind(2, std::max(removed.before_seconds, before.before_seconds))
      .Finish();
}

int ReadRemovedForAge(Database& database, RemovedForAge& removed) {
  constexpr char kRead[] =
      "SELECT ifnull(max(iif(key = 'aged', CAST(value AS INTEGER), 0)), 0),"
      " ifnull(max(iif(key = 'aged before', CAST(value AS INTEGER), 0)), 0) FROM state WHERE dataset_id = ''";
  Statement statement;
  int code = statement.Prepare(database, kRead);
  if (code != SQLITE_OK) return code;
  Run run(statement);
  code = run.Step();
  if (code != SQLITE_ROW) return code;
  removed = {.last_sequence = run.Number(0), .before_seconds = run.Number(1)};
  return SQLITE_OK;
}

}  // namespace TVK
