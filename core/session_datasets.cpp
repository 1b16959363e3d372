#include "core/session_datasets.h"

#include "client/log/guarded_thread.h"

namespace TVK {

int SessionDatasets::LogDatasetContext(const std::wstring& dataset_id, const std::vector<ObservedDevice>& devices,
                                       bool new_context_needed) {
  SessionDataset* const dataset = Find(dataset_id);
  return dataset == nullptr ? kChannelFailed : dataset->TakeDevices(devices, new_context_needed);
}

int SessionDatasets::LogDevInitEvent(const std::wstring& dataset_id) {
  SessionDataset* const dataset = Find(dataset_id);
  return dataset == nullptr ? kChannelFailed : dataset->TakeDeviceInit();
}

int SessionDatasets::WriteItem(const std::wstring& dataset_id, const std::wstring& item_name, const ItemData& data,
                               const std::wstring& device_key) {
  SessionDataset* const dataset = Find(dataset_id);
  return dataset == nullptr ? kChannelFailed : dataset->TakeItem(item_name, data, device_key);
}

SessionDataset* SessionDatasets::Find(const std::wstring& dataset_id) {
  // Before that there is no device context that a record could name.
  if (!running_ || services_.manager.get_device_context_id().empty()) return nullptr;
  const Dataset* const dataset = datasets_.FindById(dataset_id);
  if (dataset == nullptr || dataset->row.rule != DatasetRule::kUserProcess || !dataset->factory) return nullptr;
  const std::lock_guard lock(mutex_);
  std::unique_ptr<EventMonitorBase>& monitor = monitors_[dataset_id];
  if (monitor == nullptr) {
    CallLogged(log_, {L"SessionDatasets", dataset->row.name}, [&] {
      monitor = dataset->factory(services_);
      monitor->Initialize();
    });
  }
  return dynamic_cast<SessionDataset*>(monitor.get());
}

}  // namespace TVK
