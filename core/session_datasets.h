// The datasets that the user agent observes: what it tells becomes records here.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "client/channel/session_recorder.h"
#include "core/dataset_table.h"
#include "core/policy_view.h"
#include "framework/session_dataset.h"

namespace TVK {

/// SessionRecorder for the datasets of the rule kUserProcess. Each is made when the first is told of it. Any other
/// dataset is answered with kRefused, every one while the manager takes none with kChannelFailed, and one that could
/// not start by the policy in force with DatasetMonitor::kWithheld: its filters count for each observation.
class SessionDatasets final : public SessionRecorder {
 public:
  /// Everything must outlive the object, which takes nothing yet.
  SessionDatasets(const MonitorServices& services, const DatasetTable& datasets, const PolicyView& policy,
                  const Log& log)
      : services_(services), datasets_(datasets), policy_(policy), log_(log) {}

  /// Takes observations from now on, or none any more. At a stop they are taken until the user agent has ended, which
  /// hands over its last ones then.
  void SetOpen(bool open) { open_ = open; }

  int LogDatasetContext(const std::wstring& dataset_id, const std::vector<ObservedDevice>& devices,
                        bool new_context_needed) override;
  int LogDevInitEvent(const std::wstring& dataset_id) override;
  int WriteItem(const std::wstring& dataset_id, const std::wstring& item_name, const ItemData& data,
                const std::wstring& device_key) override;

  /// When the first was told of the dataset; nothing before.
  std::optional<platform::WallTime> Since(std::wstring_view dataset_id) const;

 private:
  /// What `operation` gives for the dataset, or why there is none.
  int Call(const std::wstring& dataset_id, const std::function<int(SessionDataset&)>& operation);
  /// Null when it could not be made. It lives as long as the object.
  SessionDataset* Find(const Dataset& dataset);

  const MonitorServices& services_;
  const DatasetTable& datasets_;
  const PolicyView& policy_;
  const Log& log_;
  std::atomic<bool> open_ = false;
  struct Told {
    std::unique_ptr<EventMonitorBase> monitor;
    platform::WallTime since;
  };
  mutable std::mutex mutex_;                ///< Guards told_; held while a monitor is made, never while one is called.
  std::map<std::wstring_view, Told> told_;  ///< By dataset id.
};

}  // namespace TVK
