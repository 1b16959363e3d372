// Keeps the store within its limits of size and age; item events go a bounded step at a time.
#pragma once

#include <cstdint>
#include <limits>

#include "client/store/event_data_logging.h"
#include "client/store/known_contexts.h"
#include "client/store/sqlite_database.h"

namespace TVK {

/// What stays whatever the limits say: the last item event of each dataset and item id (schedules are resumed from it),
/// the last context of each dataset's device, the last device context, every context that a kept record refers to, and
/// those that the running process uses.
/// Belongs to whoever writes at the moment; not safe for two threads.
class Retention {
 public:
  Retention(Database& database, const StoreLimits& limits) : database_(database), limits_(limits) {}

  int Prepare();

  /// To be called after each commit of `written` records, and once with the store just opened (0). Does nothing most of
  /// the time. `in_use`: where the contexts stand that the process uses. Returns 0, or why records that should go could
  /// not be removed.
  int AfterCommit(std::size_t written, std::int64_t now_seconds, const KnownContexts& in_use);

  /// Whether everything that may go is gone and the store still is larger than its limit.
  bool stays_too_large() const { return stays_too_large_; }

 private:
  /// Which records are to go: those written before the one moment, and of those written after the other the ones ahead
  /// of such a record. Seconds since 1970.
  struct Dates {
    std::int64_t before;
    std::int64_t after;
  };

  /// What statements removed.
  struct Removed {
    std::int64_t count = 0;
    std::int64_t last_sequence = 0;  ///< The largest; 0 also where only contexts went that stood for lost ones.
  };

  int RemoveOld(std::int64_t now_seconds, const KnownContexts& in_use);
  int Shrink(const KnownContexts& in_use);
  int IsTooLarge(bool& too_large);
  /// Runs a statement that removes and whose rows are the sequence numbers of what it removed; adds them to `removed`,
  /// as the next two do.
  static int Remove(Run& run, Removed& removed);
  int RemoveItems(const Dates& dates, Removed& removed);
  /// Does nothing when fewer than `at_least` contexts come into question.
  int RemoveContexts(const Dates& dates, std::int64_t at_least, const KnownContexts& in_use, Removed& removed);
  int CountContexts(const Dates& dates, std::int64_t& contexts);

  Database& database_;
  const StoreLimits limits_;
  Statement page_count_;
  Statement free_pages_;
  Statement remove_items_;
  Statement count_contexts_;
  Statement remove_contexts_;
  std::int64_t page_size_ = 0;
  std::size_t until_check_ = 0;  ///< Records to be written before the next look.
  std::int64_t ages_checked_ = std::numeric_limits<std::int64_t>::max();  ///< When; later than now: to be done again.
  std::int64_t contexts_left_ = 0;                                        ///< Superseded ones that the last look left.
  bool ages_failed_ = false;      ///< The last look at them did not come to its end.
  bool stays_too_large_ = false;  ///< Since the last time that it was within its limit.
};

}  // namespace TVK
