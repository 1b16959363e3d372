// The events that other programs of the machine hand over.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "core/dataset_table.h"
#include "core/policy_view.h"
#include "framework/tvk_event_monitor_base.h"

namespace TVK {

/// The dataset of the rule kApplication: its monitor lives as long as the object and is in no list. Any thread.
class ApplicationEvents {
 public:
  /// Everything must outlive the object. `running`: whether the manager runs. A monitor that cannot be made is logged,
  /// and no event taken.
  ApplicationEvents(const MonitorServices& services, const DatasetTable& datasets, const PolicyView& policy,
                    const Log& log, const std::atomic<bool>& running);

  /// See TVKEventMonitorBase::TakeEvent. kChannelFailed while the manager does not run, and DatasetMonitor::kWithheld
  /// where the dataset could not start by the policy in force: its filters count for each event.
  TakenEvent Take(const std::wstring& item_name, const ItemData& data, EventSender sender);

  /// See EventMonitorBase::OnDeviceContextChanges. Where the dataset could not start by the policy in force nothing is
  /// written, and a new device is made up for by the next event.
  void OnDeviceContextChanges(bool new_device);

 private:
  const MonitorServices& services_;
  const PolicyView& policy_;
  const Log& log_;
  const std::atomic<bool>& running_;
  const Dataset* const dataset_;  ///< Null: the table has no such dataset.
  std::unique_ptr<EventMonitorBase> monitor_;
  std::atomic<bool> new_device_owed_ = false;
};

}  // namespace TVK
