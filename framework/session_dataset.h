// A dataset that is observed in the user's session: another process says what it sees, the records are made here.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "client/channel/session_recorder.h"
#include "framework/dataset_monitor.h"

namespace TVK {

/// The frame of a monitor without a routine of its own: the operations of SessionRecorder drive it, for one dataset,
/// with its results. Any thread.
class SessionDataset final : public DatasetMonitor {
 public:
  /// How many devices the dataset may describe over the life of its store, which keeps the last context of each.
  static constexpr std::size_t kMostDevices = 64;

  /// `row`, `items` (item name to item id) and `keys` must outlive the monitor. `keys`: all that its contexts and items
  /// may say; another process tells it, and nothing else shall come into the records.
  SessionDataset(const MonitorServices& services, const DatasetRow& row,
                 const std::map<std::wstring, std::wstring>& items, const std::set<std::wstring>& keys);

  void StartMonitor(std::wstring /*name*/) override {}
  void StopMonitor() override {}

  /// The devices as they are now; without consent they are not kept. kRefused, and nothing is taken, for a fact that
  /// the dataset does not have; the same without the devices beyond kMostDevices, the others being taken.
  int TakeDevices(const std::vector<ObservedDevice>& devices, bool new_context_needed);
  int TakeDeviceInit();
  /// kRefused for a key that the dataset does not have; kNotDescribed also when no devices were told since the last
  /// consent.
  int TakeItem(const std::wstring& item_name, const ItemData& data, const std::wstring& device_key);

 protected:
  std::optional<std::vector<DescribedDevice>> Describe() override;
  void OnContextLogged(int result) override;

 private:
  bool HasAll(const ItemData& data) const;
  /// Takes away the devices that are too many; 0, kRefused when there were any, or the store's result.
  int DropSurplus(std::vector<DescribedDevice>& devices);
  void Forget();

  const std::set<std::wstring>& keys_;
  std::mutex take_mutex_;  ///< Held while devices are taken over; taken before the base's locks.
  std::optional<std::set<std::wstring>> known_devices_;  ///< All that were ever described. Guarded by take_mutex_.
  std::mutex devices_mutex_;                             ///< Guards what follows; held for a copy only.
  std::optional<std::vector<DescribedDevice>> devices_;  ///< Nothing until they were told.
  int context_result_ = 0;                               ///< The first of the last run that is not 0.
};

}  // namespace TVK
