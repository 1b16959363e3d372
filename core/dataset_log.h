// What runs and why not, said when it changes.
#pragma once

#include <mutex>
#include <string>
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

 private:
  const ManagerParts parts_;
  const SessionDatasets& sessions_;
  Log log_;
  std::mutex mutex_;  ///< Guards told_; held while it is found out what there is to tell.
  std::vector<std::wstring> told_;
};

}  // namespace TVK
