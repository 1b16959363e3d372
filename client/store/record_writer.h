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

  /// Writes all records in one transaction. When that fails, tries them one by one, so that one that cannot be written
  /// does not take the others with it. Sets the result of each: 0 when it is on the disk. Leaves no transaction open.
  void Write(std::span<QueuedRecord* const> records, std::int64_t now_seconds);

 private:
  int WriteTogether(std::span<QueuedRecord* const> records, std::int64_t now_seconds);
  int Begin();
  int FindSeries(const QueuedRecord& record, std::int64_t& series);
  int Insert(const QueuedRecord& record, std::int64_t now_seconds);

  Database& database_;
  Statement begin_;
  Statement commit_;
  Statement last_sequence_;
  Statement last_item_number_;
  Statement find_series_;
  Statement add_series_;
  Statement insert_;
  // Of the present transaction.
  bool began_ = false;
  std::int64_t next_sequence_ = 1;
  std::int64_t next_item_number_ = 1;
};

}  // namespace TVK
