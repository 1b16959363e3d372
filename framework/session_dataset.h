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
  /// How many devices the store keeps apart: as many last contexts it keeps for good. One more takes the place of the
  /// one that was described longest ago, which is a new device when it comes back.
  static constexpr std::size_t kMostDevices = 64;

  /// `row`, `items` (item name to item id) and `keys` must outlive the monitor. `keys`: all that its contexts and items
  /// may say; another process tells it, and nothing else shall come into the records.
  SessionDataset(const MonitorServices& services, const DatasetRow& row,
                 const std::map<std::wstring, std::wstring>& items, const std::set<std::wstring>& keys);

  void StartMonitor(std::wstring /*name*/) override {}
  void StopMonitor() override {}

  /// The devices as they are now; without consent they are not kept. kRefused, and nothing is taken, for a fact that
  /// the dataset does not have, and for more than kMostDevices at once.
  int TakeDevices(const std::vector<ObservedDevice>& devices, bool new_context_needed);
  int TakeDeviceInit();
  /// kRefused for a key that the dataset does not have; kNotDescribed also when no devices were told since the last
  /// consent.
  int TakeItem(const std::wstring& item_name, const ItemData& data, const std::wstring& device_key);

 protected:
  std::optional<std::vector<DescribedDevice>> Describe() override;
  void OnContextLogged(int result) override;

 private:
  /// Where the store keeps the contexts of a device: under the key of the first device that had the place.
  struct Place {
    std::wstring name;
    std::wstring device;  ///< The key of the one that has it now.
    bool operator==(const Place&) const = default;
  };
  using Places = std::vector<Place>;  ///< Of different names and devices, the one described longest ago first.

  bool HasAll(const ItemData& data) const;
  static Places PlacesFromText(std::wstring text);
  static std::wstring ToText(const Places& places);
  /// Puts the places of the devices into their keys. `places`: all, as they are with these devices. `another`: one of
  /// them has the place of another device now. 0, or the store's result.
  int FindPlaces(std::vector<DescribedDevice>& devices, Places& places, bool& another);
  /// Has the store know the places: behind the contexts, so that after a kill between the two a device is new once more
  /// instead of being taken for the one that had its place. 0, or the store's result.
  int KeepPlaces(Places places);
  void Forget();

  const std::set<std::wstring>& keys_;
  std::mutex take_mutex_;  ///< Held while devices are taken over; taken before the base's locks. Guards the next.
  std::optional<Places> places_;                         ///< As the store has them; nothing: to be read.
  std::mutex devices_mutex_;                             ///< Guards what follows; held for a copy only.
  std::optional<std::vector<DescribedDevice>> devices_;  ///< By place; nothing until they were told.
  std::map<std::wstring, std::wstring> place_of_;        ///< Of each of them, by the key that it was told with.
  int context_result_ = 0;                               ///< The first of the last run that is not 0.
};

}  // namespace TVK
