#include "framework/session_dataset.h"

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
                               const std::map<std::wstring, std::wstring>& items)
    : DatasetMonitor(services, {row, items, kLines}) {}

int SessionDataset::TakeDevices(const std::vector<ObservedDevice>& devices, bool new_context_needed) {
  const std::lock_guard one_at_a_time(take_mutex_);
  if (!Admits()) return kWithheld;
  {
    const std::lock_guard lock(devices_mutex_);
    devices_.emplace();
    for (const ObservedDevice& device : devices)
      devices_->push_back({.key = device.key, .facts = device.facts});
    context_result_ = 0;
  }
  LogDatasetContext(new_context_needed);
  const std::lock_guard lock(devices_mutex_);
  return context_result_;
}

int SessionDataset::TakeDeviceInit() {
  return Admits() ? LogDevInitEvent() : kWithheld;
}

int SessionDataset::TakeItem(const std::wstring& item_name, const ItemData& data, const std::wstring& device_key) {
  return WriteItem(item_name, data, device_key);
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
