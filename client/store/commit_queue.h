// Puts writers that meet into one commit, without a thread of its own: the first that finds nobody at work leads, takes
// everything that waits and commits it; the others wait for their results. While it waits for the disk the next commit
// gathers.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/store/record_row.h"

namespace TVK {

/// A record on its way to the disk, or several that are written together or not at all. The writer's thread owns it and
/// keeps it until Write returns.
struct QueuedRecord {
  static constexpr int kNotWritten = -1;

  QueuedRecord(RecordRow its_row, std::wstring_view its_dataset_name)
      : row(std::move(its_row)), dataset_name(its_dataset_name) {}

  RecordRow row;
  std::vector<RecordRow> more = {};  ///< Item events that go with it, in this order.
  std::wstring_view dataset_name;    ///< For log lines.
  int result = kNotWritten;          ///< Set by the commit.
  std::string problem;               ///< What the database said of a result that is its error; else empty.
  std::int64_t sequence = 0;         ///< Where it stands in the file; set with the result 0.

 private:
  friend class CommitQueue;
  const std::function<void()>* work_ = nullptr;  ///< In the place of a record.
  bool done_ = false;
  bool leads_ = false;
};

/// The ids of the contexts that they name.
std::set<std::string> ContextsNamedBy(std::span<QueuedRecord* const> records);

class CommitQueue {
 public:
  /// Writes the records, in this order, and sets the result of each. Runs on one thread at a time. Must not throw.
  using Commit = std::function<void(std::span<QueuedRecord* const>)>;

  explicit CommitQueue(Commit commit) : commit_(std::move(commit)) {}

  /// Returns the record's result. Any thread.
  int Write(QueuedRecord& record);

  /// Does `work`, which must not throw, while nobody writes; on the thread that leads. Any thread.
  void Do(const std::function<void()>& work);

 private:
  const Commit commit_;
  std::mutex mutex_;  ///< Guards what follows and the flags of the records in it.
  std::vector<QueuedRecord*> waiting_;
  std::size_t last_batch_ = 0;  ///< How many the last commit carried.
  bool busy_ = false;           ///< Somebody leads, or has been told to.

  std::condition_variable finished_;  ///< A commit has ended: some are done, one may lead.
};

}  // namespace TVK
