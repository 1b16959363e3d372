// What the log says of records that the store could not take.
#pragma once

#include <cstdint>
#include <set>
#include <span>
#include <string>

#include "client/log/log.h"
#include "client/store/commit_queue.h"

namespace TVK {

/// A line of the log for a code of the store or of SQLite.
std::wstring StoreErrorText(int code);

/// Whether a context that failed so is to be remembered: one that another try can write.
bool MayBeWrittenLater(int result);

class LossLog {
 public:
  /// `log` must outlive the object.
  explicit LossLog(const Log& log) : log_(log) {}

  /// One record. Any thread.
  void LogOne(const QueuedRecord& record) const;

  /// What became of a commit: each loss, and their number when it is over, since on a full disk the lines about them
  /// are lost, too. Records that name an unknown context are told of once for each of its ids. One thread at a time.
  void Report(std::span<QueuedRecord* const> records);

 private:
  void LogRefusal(const QueuedRecord& record);

  const Log& log_;
  std::uint64_t lost_ = 0;      ///< Since the last record that was written.
  std::set<std::string> told_;  ///< Ids of contexts, as the refused records name them.
};

}  // namespace TVK
