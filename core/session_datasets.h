// The datasets that the user agent observes: what it tells becomes records here.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "client/channel/session_recorder.h"
#include "core/dataset_table.h"
#include "framework/session_dataset.h"

namespace TVK {

/// SessionRecorder for the datasets of the rule kUserProcess. Each is made when the first is told of it. Any other
/// dataset, and every one while the manager does not run, is refused with kChannelFailed.
class SessionDatasets final : public SessionRecorder {
 public:
  /// Everything must outlive the object. `running`: whether the manager runs.
  SessionDatasets(const MonitorServices& services, const DatasetTable& datasets, const Log& log,
                  const std::atomic<bool>& running)
      : services_(services), datasets_(datasets), log_(log), running_(running) {}

  int LogDatasetContext(const std::wstring& dataset_id, const std::vector<ObservedDevice>& devices,
                        bool new_context_needed) override;
  int LogDevInitEvent(const std::wstring& dataset_id) override;
  int WriteItem(const std::wstring& dataset_id, const std::wstring& item_name, const ItemData& data,
                const std::wstring& device_key) override;

 private:
  /// Null when it is refused. It lives as long as the object.
  SessionDataset* Find(const std::wstring& dataset_id);

  const MonitorServices& services_;
  const DatasetTable& datasets_;
  const Log& log_;
  const std::atomic<bool>& running_;
  std::mutex mutex_;  ///< Guards monitors_; held while one is made, never while one is called.
  std::map<std::wstring, std::unique_ptr<EventMonitorBase>> monitors_;  ///< By dataset id.
};

}  // namespace TVK
