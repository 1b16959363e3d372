#include "framework/session_dataset.h"

#include <algorithm>
#include <utility>

namespace TVK {
namespace {

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
  if (!std::ranges::all_of(devices, [&](const ObservedDevice& device) { return HasAll(device.facts); })) {
    return SessionRecorder::kRefused;
  }
  std::vector<DescribedDevice> taken;
  for (const ObservedDevice& device : devices)
    taken.push_back({.key = device.key, .facts = device.facts});
  const int surplus = DropSurplus(taken);
  if (surplus > 0) return surplus;
  bool failed_before = false;
  {
    const std::lock_guard lock(devices_mutex_);
    devices_ = std::move(taken);
    failed_before = std::exchange(context_result_, 0) != 0;
  }
  // A context that the store refused holds all the same, and would not be written for being told again.
  LogDatasetContext(new_context_needed || failed_before);
  const std::lock_guard lock(devices_mutex_);
  if (context_result_ == kWithheld) devices_.reset();
  return context_result_ != 0 ? context_result_ : surplus;
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
  if (!Describe()) return SessionRecorder::kNotDescribed;
  return WriteItem(item_name, data, device_key);
}

bool SessionDataset::HasAll(const ItemData& data) const {
  return std::ranges::all_of(data, [&](const auto& entry) { return keys_.contains(entry.first); });
}

int SessionDataset::DropSurplus(std::vector<DescribedDevice>& devices) {
  constexpr wchar_t kStateKey[] = L"Devices";
  constexpr wchar_t kEnd = L'\n';  // stands in no key that comes from outside
  const std::wstring dataset(identity().row.id);
  if (!known_devices_) {
    std::wstring stored;
    const int error = services().store.GetState(dataset, kStateKey, stored);
    if (error != 0 && error != kStoreNotFound) return error;
    known_devices_.emplace();
    for (std::size_t end = 0; (end = stored.find(kEnd)) != stored.npos; stored.erase(0, end + 1))
      known_devices_->insert(stored.substr(0, end));
  }
  const std::size_t known_before = known_devices_->size();
  const std::size_t surplus = std::erase_if(devices, [&](const DescribedDevice& device) {
    if (known_devices_->contains(device.key)) return false;
    if (known_devices_->size() >= kMostDevices) return true;
    known_devices_->insert(device.key);
    return false;
  });
  if (known_devices_->size() > known_before) {
    std::wstring all;
    for (const std::wstring& key : *known_devices_)
      all += key + kEnd;
    if (const int error = services().store.KeepState(dataset, {kStateKey, all}); error != 0) {
      known_devices_.reset();  // to be read, and kept, again
      return error;
    }
  }
  return surplus > 0 ? SessionRecorder::kRefused : 0;
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
