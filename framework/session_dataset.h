// A dataset that is observed in the user's session: another process says what it sees, the records are made here.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "client/channel/session_recorder.h"
#include "framework/dataset_monitor.h"

namespace TVK {

/// The frame of a monitor without a routine of its own: the operations of SessionRecorder drive it, for one dataset,
/// with its results. Any thread.
class SessionDataset final : public DatasetMonitor {
 public:
  /// `row` and `items` (item name to item id) must outlive the monitor.
  SessionDataset(const MonitorServices& services, const DatasetRow& row,
                 const std::map<std::wstring, std::wstring>& items);

  void StartMonitor(std::wstring /*name*/) override {}
  void StopMonitor() override {}

  /// The devices as they are now; without consent they are not kept.
  int TakeDevices(const std::vector<ObservedDevice>& devices, bool new_context_needed);
  int TakeDeviceInit();
  int TakeItem(const std::wstring& item_name, const ItemData& data, const std::wstring& device_key);

 protected:
  std::optional<std::vector<DescribedDevice>> Describe() override;
  void OnContextLogged(int result) override;

 private:
  std::mutex take_mutex_;     ///< Held while devices are taken over; taken before the base's locks.
  std::mutex devices_mutex_;  ///< Guards what follows; held for a copy only.
  std::optional<std::vector<DescribedDevice>> devices_;  ///< Nothing until they were told.
  int context_result_ = 0;                               ///< The first of a run that is not 0.
};

}  // namespace TVK
