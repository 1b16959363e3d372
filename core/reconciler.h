// Makes the list of monitors agree with the policy in force.
#pragma once

#include <atomic>
#include <functional>
#include <set>
#include <string>
#include <string_view>

#include "client/log/log.h"
#include "core/device_context_record.h"
#include "core/display_process.h"
#include "core/identity_values.h"
#include "core/manager_services.h"
#include "core/monitor_list.h"
#include "core/monitor_stoppers.h"
#include "core/policy_view.h"

namespace TVK {

/// What the manager's parts are to each other. All of them outlive whoever holds the references.
struct ManagerParts {
  const ManagerServices& services;
  const MonitorServices& monitor_services;
  const Log& log;
  const std::atomic<bool>& initialized;  ///< Cleared by Stop, which waits for the handlers: they hurry then.
  IdentityValues& identity;
  PolicyView& policy;
  Notifier& notifier;
  MonitorList& monitors;
  DisplayProcess& display;
  DeviceContextRecord& device_context;

  /// Tells a person, if one is to be told.
  void Remark(const std::string& line) const;
};

/// One thread at a time: the control thread's in Initialize and Stop, between them that of the handlers. What a stopper
/// does (StopAndRemoveFromList) any thread may.
class Reconciler {
 public:
  /// By which a dataset is started and stopped: the manager's virtual operations.
  using ById = std::function<void(const std::wstring& dataset_id)>;

  Reconciler(const ManagerParts& parts, ById run, ById stop);

  /// Marks, in the store, the datasets that may not run, are not listed and whose sources keep what happens: what
  /// happens until their consent is given again is not to be told. At the start of the service, since it may have been
  /// withdrawn while none ran, and behind each stop. What the store does not take is logged, and tried again at the
  /// next call, even when the consent is given again by then.
  void NoteWithdrawals();

  // At the start of the service.
  /// Lists the monitors that run always, in the order of their ids, so that the list is the same at every start.
  void AddNullAndNoneDatasets();
  /// Lists those that `policy` starts.
  void AddPolicyDatasets(const NormalisedPolicy& policy);

  /// Makes the monitor of a dataset that the policy in force starts, lists and starts it; starts the user agent for the
  /// display dataset.
  void RunAndAddToList(const std::wstring& dataset_id);
  /// Stops the dataset's monitor, waits for its thread, deletes and unlists it.
  void StopAndRemoveFromList(const std::wstring& dataset_id);

  /// Stops the listed monitors that may not go on, and waits for the writes that are excluded. A monitor that is busy
  /// for longer than a second is left to its stopper, which asks for another reconciliation when it is done.
  void StopDisabledDatasets();
  /// Starts what may run and does not.
  void StartMissingDatasets(const NormalisedPolicy& policy);
  /// Has every listed monitor read its settings.
  void RereadSettings();
  /// Tries again what the system refused: monitors that have no thread, that lack what they start with, or a report,
  /// and those that could not be made. What is refused once more is told again.
  void TryAgain();
  /// Joins the threads of the monitors whose main routine has returned, and leaves the others.
  void WaitForEventMonitorThreads();

  /// Waits for every monitor that is being stopped.
  void JoinStoppers() { stoppers_.JoinAll(); }

 private:
  bool AddMonitor(const Dataset& dataset, MonitorList::Entry& entry);
  /// Whether there is a monitor of the dataset, also one on its way out, or the user agent of it.
  bool IsThere(const DatasetRow& row) const;
  /// Returns 0, or the store's error.
  int MarkWithdrawn(const std::wstring& dataset_id);
  /// See MonitorList; it is tried again. Throws nothing.
  void NoteMissing(const Dataset& dataset);
  /// Stops the monitor on a stopper; what `ended_late` does, see MonitorStoppers::Run.
  void StopOnStopper(const MonitorList::Entry& entry, const std::function<void()>& ended_late);

  const ManagerParts parts_;
  const ById run_;
  const ById stop_;
  MonitorStoppers stoppers_;
  std::set<std::wstring_view> stopped_;   ///< By id; for want of consent, and not marked since.
  std::set<std::wstring_view> unmarked_;  ///< By id; withdrawn, and the store did not take the mark.
};

}  // namespace TVK
