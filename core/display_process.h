// The display dataset, and what else is observed in the user agent's process instead of by a monitor here.
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
  /// Everything must outlive the object. The first of `datasets` with the rule kUserProcess is the display dataset.
  DisplayProcess(UserProcessAgent& agent, PolicyView& policy, Notifier& notifier, const Log& log,
                 const DatasetTable& datasets)
      : agent_(agent),
        policy_(policy),
        notifier_(notifier),
        log_(log),
        datasets_(datasets),
        dataset_(datasets.FindByRule(DatasetRule::kUserProcess)) {}

  /// Starts the process, or sees to it that it runs, where this system has user agents; logged with `caller`.
  /// `device_path_changed`: one that runs already is told of a change of the device path.
  void Start(const wchar_t* caller, bool device_path_changed);

  /// Whether the process is there now.
  bool Runs() const { return agent_.UserProcessRuns(); }

  /// Whether the policy in force (read anew) lets the dataset go on, or start where it was not started.
  bool ValidateDisplayEventWithNewPolicy() const;

  /// Ends the process when it was started and none of its datasets may go on.
  void StopIfExcluded();
  /// Ends it when it was started; true then.
  bool Stop();

 private:
  UserProcessAgent& agent_;
  PolicyView& policy_;
  Notifier& notifier_;
  const Log& log_;
  const DatasetTable& datasets_;
  const Dataset* const dataset_;  ///< The display dataset; null where there is none.
  std::atomic<bool> started_ = false;
  std::atomic<bool> told_absent_ = false;  ///< That this system has no user agent.
};

}  // namespace TVK
