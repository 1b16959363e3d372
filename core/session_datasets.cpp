#include "core/session_datasets.h"

#include "client/log/guarded_thread.h"

namespace TVK {

int SessionDatasets::LogDatasetContext(const std::wstring& dataset_id, const std::vector<ObservedDevice>& devices,
                                       bool new_context_needed) {
  return Call(dataset_id, [&](SessionDataset& dataset) { return dataset.TakeDevices(devices, new_context_needed); });
}

int SessionDatasets::LogDevInitEvent(const std::wstring& dataset_id) {
  return Call(dataset_id, [](SessionDataset& dataset) { return dataset.TakeDeviceInit(); });
}

int SessionDatasets::WriteItem(const std::wstring& dataset_id, const std::wstring& item_name, const ItemData& data,
                               const std::wstring& device_key) {
  return Call(dataset_id, [&](SessionDataset& dataset) { return dataset.TakeItem(item_name, data, device_key); });
}

int SessionDatasets::Call(const std::wstring& dataset_id, const std::function<int(SessionDataset&)>& operation) {
  const Dataset* const dataset = datasets_.FindById(dataset_id);
  if (dataset == nullptr || dataset->row.rule != DatasetRule::kUserProcess || !dataset->factory) return kRefused;
  // Before that there is no device context that a record could name.
  if (!open_ || services_.manager.get_device_context_id().empty()) return kChannelFailed;
  if (!policy_.Decide(dataset->row, DecisionMoment::kStart).runs()) return DatasetMonitor::kWithheld;
  SessionDataset* const monitor = Find(*dataset);
  return monitor == nullptr ? kChannelFailed : operation(*monitor);
}

SessionDataset* SessionDatasets::Find(const Dataset& dataset) {
  const std::lock_guard lock(mutex_);
  Told& told = told_[dataset.row.id];
  if (told.monitor == nullptr) {
    CallLogged(log_, {L"SessionDatasets", dataset.row.name}, [&] {
      told.monitor = dataset.factory(services_);
      told.monitor->Initialize();
      told.since = services_.runtime.clock().Now();
    });
  }
  return dynamic_cast<SessionDataset*>(told.monitor.get());
}

std::optional<platform::WallTime> SessionDatasets::Since(std::wstring_view dataset_id) const {
  const std::lock_guard lock(mutex_);
  const auto found = told_.find(dataset_id);
  if (found == told_.end() || found->second.monitor == nullptr) return std::nullopt;
  return found->second.since;
}

}  // namespace TVK
