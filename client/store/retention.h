// Keeps the store within its limits of size and age, a bounded step at a time.
#pragma once

#include <cstdint>

#include "client/store/event_data_logging.h"
#include "client/store/sqlite_database.h"

namespace TVK {

/// What stays whatever the limits say: the last item event of each dataset and item id (schedules are resumed from it),
/// the last context of each dataset, the last device context, and every context that a kept record refers to.
/// Belongs to whoever writes at the moment; not safe for two threads.
class Retention {
 public:
  Retention(Database& database, const StoreLimits& limits) : database_(database), limits_(limits) {}

  int Prepare();

  /// To be called after each commit of `written` records, and once with the store just opened (0). Does nothing most of
  /// the time. Returns 0, or why records that should go could not be removed.
  int AfterCommit(std::size_t written, std::int64_t now_seconds);

 private:
  int UsedBytes(std::int64_t& bytes);
  int RemoveItems(std::int64_t older_than, std::int64_t& removed);
  int RemoveContexts();

  Database& database_;
  const StoreLimits limits_;
  Statement page_count_;
  Statement free_pages_;
  Statement remove_items_;
  Statement count_contexts_;
  Statement remove_contexts_;
  std::int64_t page_size_ = 0;
  std::size_t until_check_ = 0;       ///< Records to be written before the next look.
  std::int64_t contexts_in_use_ = 0;  ///< That the last look left.
};

}  // namespace TVK
