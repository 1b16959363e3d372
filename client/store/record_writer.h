// Writes records in transactions.
#pragma once

#include <cstdint>
#include <span>

#include "client/store/commit_queue.h"
#include "client/store/sqlite_database.h"

namespace TVK {

/// Belongs to whoever writes at the moment; not safe for two threads.
class RecordWriter {
 public:
  explicit RecordWriter(Database& database) : database_(database) {}

  int Prepare();

  /// Writes `contexts`, which the records may name, and then the records, all in one transaction. When that fails,
  /// tries the contexts and then each record by itself, so that one that cannot be written does not take the others
  /// with it. Sets the result of each: 0 when it is on the disk, kStoreUnknownContext when it names a context that is
  /// not in the file; that one alone is then left out. Of what goes with a record nothing is written without the
  /// others. Leaves no transaction open.
  void Write(std::span<QueuedRecord* const> contexts, std::span<QueuedRecord* const> records, std::int64_t now_seconds);

  /// Where the context with this id stands in the file; 0 when it does not, or cannot be looked for.
  std::int64_t FindContext(RecordKind kind, const std::string& context_id);

 private:
  int WriteTogether(std::span<QueuedRecord* const> contexts, std::span<QueuedRecord* const> records,
                    std::int64_t now_seconds);
  int Begin();
  int FindSeries(const RecordRow& row, std::int64_t& series);
  int FindReference(RecordKind kind, const std::string& context_id, std::int64_t& sequence);
  int Insert(QueuedRecord& record, std::int64_t now_seconds);
  int InsertRow(const RecordRow& row, std::int64_t now_seconds);
  int KeepState(const RecordRow& row);

  Database& database_;
  Statement begin_;
  Statement commit_;
  Statement last_sequence_;
  Statement last_item_number_;
  Statement find_series_;
  Statement add_series_;
  Statement find_context_;
  Statement insert_;
  Statement keep_state_;
  // Of the present transaction.
  bool began_ = false;
  std::int64_t next_sequence_ = 1;
  std::int64_t next_item_number_ = 1;
};

}  // namespace TVK
