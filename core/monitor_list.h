// The manager's list of monitors.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string_view>
#include <vector>

#include "core/monitor_entry.h"

namespace TVK {

/// Entries in the order in which they were added. Any thread. The lock is held for a look at the list only, never while
/// a monitor is called, stopped or joined: who walks the list walks a copy, whose entries live as long as it does.
class MonitorList {
 public:
  using Entry = std::shared_ptr<MonitorEntry>;

  /// Takes entries from now on; at first it takes none.
  void Open();
  /// Takes none any more. Returns the entries whose stop this call has claimed, in list order; those that somebody else
  /// is stopping stay with that one. All stay in the list until they are removed. Needs no memory: a stop must succeed.
  std::vector<Entry> Close();

  /// False when the list is closed; it then does not hold the entry.
  bool Add(const Entry& entry);
  void Remove(const Entry& entry);

  /// Notes that the dataset's monitor is to run and could not be made or started, until one is added. `dataset_id` is
  /// a row's.
  void NoteMissing(std::wstring_view dataset_id);
  bool IsMissing(std::wstring_view dataset_id) const;

  /// The monitors that are neither stopped nor about to be.
  std::vector<Entry> Listed() const;
  /// The entry of the dataset with this id, also when its monitor is on its way out; null when there is none.
  Entry Find(std::wstring_view dataset_id) const;

  /// Calls one operation of every listed monitor, in list order; see MonitorEntry::Call.
  void CallEach(const wchar_t* caller, const std::function<void(EventMonitorBase&)>& call) const;

 private:
  mutable std::mutex mutex_;  ///< Guards what follows; taken before an entry's own lock.
  bool open_ = false;
  std::vector<Entry> entries_;
  std::set<std::wstring_view> missing_;  ///< See NoteMissing.
  std::vector<Entry> claimed_;           ///< Empty; has room for all entries.
};

}  // namespace TVK
