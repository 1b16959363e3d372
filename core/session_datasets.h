// The datasets that the user agent observes: what it tells becomes records here.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "client/channel/session_recorder.h"
#include "core/dataset_table.h"
#include "core/policy_view.h"
#include "framework/session_dataset.h"

namespace TVK {

/// SessionRecorder for the datasets of the rule kUserProcess. Each is made when the first is told of it. Any other
/// dataset is answered with kRefused, every one while the manager does not run with kChannelFailed, and one that could
/// not start by the policy in force with DatasetMonitor::kWithheld: its filters count for each observation.
class SessionDatasets final : public SessionRecorder {
 public:
  /// Everything must outlive the object. `running`: whether the manager runs.
  SessionDatasets(const MonitorServices& services, const DatasetTable& datasets, const PolicyView& policy,
                  const Log& log, const std::atomic<bool>& running)
      : services_(services), datasets_(datasets), policy_(policy), log_(log), running_(running) {}

  int LogDatasetContext(const std::wstring& dataset_id, const std::vector<ObservedDevice>& devices,
                        bool new_context_needed) override;
  int LogDevInitEvent(const std::wstring& dataset_id) override;
  int WriteItem(const std::wstring& dataset_id, const std::wstring& item_name, const ItemData& data,
                const std::wstring& device_key) override;

 private:
  /// What `operation` gives for the dataset, or why there is none.
  int Call(const std::wstring& dataset_id, const std::function<int(SessionDataset&)>& operation);
  /// Null when it could not be made. It lives as long as the object.
  SessionDataset* Find(const Dataset& dataset);

  const MonitorServices& services_;
  const DatasetTable& datasets_;
  const PolicyView& policy_;
  const Log& log_;
  const std::atomic<bool>& running_;
  std::mutex mutex_;  ///< Guards monitors_; held while one is made, never while one is called.
  std::map<std::wstring_view, std::unique_ptr<EventMonitorBase>> monitors_;  ///< By dataset id.
};

}  // namespace TVK
