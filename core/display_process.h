// The display dataset, which is collected in the user agent's process instead of a monitor here.
#pragma once

#include <atomic>

#include "client/log/log.h"
#include "core/notifier.h"
#include "core/policy_view.h"
#include "core/user_process_agent.h"

namespace TVK {

/// Any thread.
class DisplayProcess {
 public:
  /// Everything must outlive the object. `dataset`: the display dataset; null where there is none.
  DisplayProcess(UserProcessAgent& agent, PolicyView& policy, Notifier& notifier, const Log& log,
                 const Dataset* dataset)
      : agent_(agent), policy_(policy), notifier_(notifier), log_(log), dataset_(dataset) {}

  /// Starts the process, or sees to it that it runs, where this system has user agents; logged with `caller`.
  /// `device_path_changed`: one that runs already is told of a change of the device path.
  void Start(const wchar_t* caller, bool device_path_changed);

  /// Whether the process is there now.
  bool Runs() const { return agent_.UserProcessRuns(); }

  /// Whether the policy in force (read anew) lets the dataset go on, or start where it was not started.
  bool ValidateDisplayEventWithNewPolicy() const;

  /// Ends the process when it was started and may not go on.
  void StopIfExcluded();
  /// Ends it when it was started; true then.
  bool Stop();

 private:
  UserProcessAgent& agent_;
  PolicyView& policy_;
  Notifier& notifier_;
  const Log& log_;
  const Dataset* const dataset_;
  std::atomic<bool> started_ = false;
  std::atomic<bool> told_absent_ = false;  ///< That this system has no user agent.
};

}  // namespace TVK
