// What runs and why not, said when it changes.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/log/log.h"
#include "core/reconciler.h"
#include "core/session_datasets.h"

namespace TVK {

/// A log of its own, "Datasets.log": the manager's own log says in its own words what it does. Any thread.
class DatasetLog {
 public:
  /// Everything must outlive the object.
  DatasetLog(const ManagerParts& parts, const SessionDatasets& sessions);

  /// The scope, one line for each dataset, "CPUEvent: runs" or "CPUEvent: does not run: " and why not, and one for each
  /// mistake of the policy that leaves the rest of it in use, the first 100; nothing when that is what was told last.
  void Tell();
  /// A new start: everything is told again.
  void Forget();
  /// When the dataset was first seen to run, of those that run now; nothing of the others. For those that no monitor
  /// knows a beginning of.
  std::optional<platform::WallTime> Since(std::wstring_view dataset_id) const;

 private:
  const ManagerParts parts_;
  const SessionDatasets& sessions_;
  Log log_;
  mutable std::mutex mutex_;  ///< Guards what follows; held while it is found out what there is to tell.
  std::vector<std::wstring> told_;
  std::map<std::wstring_view, platform::WallTime> since_;  ///< Of what runs, by dataset id.
};

}  // namespace TVK
