#include "framework/session_dataset.h"

#include <algorithm>
#include <utility>

namespace TVK {
namespace {

constexpr wchar_t kStateKey[] = L"Devices";
// Neither stands in a key that comes from outside.
constexpr wchar_t kPlaceEnd = L'\n';
constexpr wchar_t kNameEnd = L'\t';

constexpr MonitorLines kLines = {
    .context_decision = L"a dataset context is needed: %s; the manager logs on change: %s",
    .context_failure = L"the store took no dataset context: %d",
    .init_failure = L"a device-initialisation event was not written",
    .item_failure = L"LogItemEvent(%s): the store's result is %d",
};

}  // namespace

SessionDataset::SessionDataset(const MonitorServices& services, const DatasetRow& row,
                               const std::map<std::wstring, std::wstring>& items, const std::set<std::wstring>& keys)
    : DatasetMonitor(services, {row, items, kLines}), keys_(keys) {}

int SessionDataset::TakeDevices(const std::vector<ObservedDevice>& devices, bool new_context_needed) {
  const std::lock_guard one_at_a_time(take_mutex_);
  if (!Admits()) {
    Forget();
    return kWithheld;
  }
  if (devices.size() > kMostDevices ||
      !std::ranges::all_of(devices, [&](const ObservedDevice& device) { return HasAll(device.facts); })) {
    return SessionRecorder::kRefused;
  }
  std::vector<DescribedDevice> taken;
  for (const ObservedDevice& device : devices)
    taken.push_back({.key = device.key, .facts = device.facts});
  bool another = false;
  Places places;
  if (const int error = FindPlaces(taken, places, another); error != 0) return error;
  bool failed_before = false;
  {
    const std::lock_guard lock(devices_mutex_);
    place_of_.clear();
    for (std::size_t i = 0; i < devices.size(); ++i)
      place_of_[devices[i].key] = taken[i].key;
    devices_ = std::move(taken);
    failed_before = std::exchange(context_result_, 0) != 0;
  }
  // A context that the store refused holds all the same, and would not be written for being told again; the one of the
  // device that had the place before may say the same.
  LogDatasetContext(new_context_needed || failed_before || another);
  {
    const std::lock_guard lock(devices_mutex_);
    if (context_result_ == kWithheld) devices_.reset();
    if (context_result_ != 0) return context_result_;
  }
  return KeepPlaces(std::move(places));
}

int SessionDataset::TakeDeviceInit() {
  if (!Admits()) return kWithheld;
  if (!Describe()) return SessionRecorder::kNotDescribed;
  const int result = LogDevInitEvent();
  // What was withheld is 0 there: the consent may have gone meanwhile.
  return result != 0 || Admits() ? result : kWithheld;
}

int SessionDataset::TakeItem(const std::wstring& item_name, const ItemData& data, const std::wstring& device_key) {
  if (!Admits()) return kWithheld;
  if (!HasAll(data)) return SessionRecorder::kRefused;
  std::wstring place;
  {
    const std::lock_guard lock(devices_mutex_);
    const auto known = place_of_.find(device_key);
    if (!devices_ || known == place_of_.end()) return SessionRecorder::kNotDescribed;
    place = known->second;
  }
  return WriteItem(item_name, data, place);
}

bool SessionDataset::HasAll(const ItemData& data) const {
  return std::ranges::all_of(data, [&](const auto& entry) { return keys_.contains(entry.first); });
}

SessionDataset::Places SessionDataset::PlacesFromText(std::wstring text) {
  Places places;
  for (std::size_t end = 0; (end = text.find(kPlaceEnd)) != text.npos; text.erase(0, end + 1)) {
    const std::wstring line = text.substr(0, end);
    const std::size_t name_end = line.find(kNameEnd);
    places.push_back({line.substr(0, name_end), name_end == line.npos ? line : line.substr(name_end + 1)});
  }
  return places;
}

std::wstring SessionDataset::ToText(const Places& places) {
  std::wstring text;
  for (const Place& place : places)
    text += (place.name == place.device ? place.name : place.name + kNameEnd + place.device) + kPlaceEnd;
  return text;
}

int SessionDataset::FindPlaces(std::vector<DescribedDevice>& devices, Places& places, bool& another) {
  const std::wstring dataset(identity().row.id);
  if (!places_) {
    std::wstring stored;
    const int error = services().store.GetState(dataset, kStateKey, stored);
    if (error != 0 && error != kStoreNotFound) return error;
    places_ = PlacesFromText(std::move(stored));
  }
  places = *places_;
  // Those that are known go to the end first: a new one takes the place of none that is there.
  for (const DescribedDevice& device : devices) {
    const auto place = std::ranges::find(places, device.key, &Place::device);
    if (place != places.end()) std::rotate(place, place + 1, places.end());
  }
  for (DescribedDevice& device : devices) {
    auto place = std::ranges::find(places, device.key, &Place::device);
    if (place == places.end() && places.size() < kMostDevices) {
      place = places.insert(places.end(), {device.key, device.key});
    } else if (place == places.end()) {
      place = places.begin();
      place->device = device.key;
      another = true;
      if (const int error = ForgetDeviceInit(place->name); error != 0) return error;
    }
    device.key = place->name;
    std::rotate(place, place + 1, places.end());
  }
  return 0;
}

int SessionDataset::KeepPlaces(Places places) {
  if (places == *places_) return 0;
  const int error = services().store.KeepState(std::wstring(identity().row.id), {kStateKey, ToText(places)});
  if (error == 0) {
    places_ = std::move(places);
  } else {
    places_.reset();  // to be read, and kept, again
  }
  return error;
}

void SessionDataset::Forget() {
  const std::lock_guard lock(devices_mutex_);
  devices_.reset();
}

std::optional<std::vector<DescribedDevice>> SessionDataset::Describe() {
  const std::lock_guard lock(devices_mutex_);
  return devices_;
}

void SessionDataset::OnContextLogged(int result) {
  const std::lock_guard lock(devices_mutex_);
  if (context_result_ == 0) context_result_ = result;
}

}  // namespace TVK
