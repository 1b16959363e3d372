#include "testing/monitor_world.h"

#include <algorithm>
#include <iterator>

#include "client/records/record_json.h"
#include "client/text/record_time.h"

void SettableConfigAgent::SetSettings(const std::wstring& dataset_name, std::map<std::wstring, std::wstring> settings) {
  const std::lock_guard lock(mutex_);
  for (DataSet& dataset : policy_.value().datasets) {
    if (dataset.name == dataset_name) dataset.settings = settings;
  }
}

std::wstring SettableManagerIdentity::get_device_context_id() {
  const std::lock_guard lock(mutex_);
  DeviceContext context;
  if (store->GetDeviceContext(device_context_id, context) != 0) {
    context.set_device_context_id(device_context_id);
    store->LogDeviceContext(context);
  }
  return device_context_id;
}

ServiceLife::ServiceLife(platform::Runtime& runtime, platform::Machine& machine, IConfigAgent& config,
                         const TempFolder& folder)
    : store({.file = folder.path() / TVK::kStoreFileName, .limits = {}}, runtime.clock()),
      machine_information(machine, runtime.clock()),
      region_information(machine.region(), runtime.clock()),
      tvk_info(TVK::System::GetTime(runtime.clock())),
      second_tick_(runtime),
      services_{runtime, machine, store, config, machine_information, tvk_info, manager, second_tick_, consent} {
  manager.store = &store;
  store.SetRecordListener([this](TVK::RecordKind kind, const std::string& json) { Collect(kind, json); });
}

ServiceLife::~ServiceLife() {
  store.SetRecordListener(nullptr);
}

void ServiceLife::Collect(TVK::RecordKind kind, const std::string& json) {
  const std::lock_guard lock(mutex_);
  switch (kind) {
    case TVK::RecordKind::kItem:
      items_.push_back(TVK::ItemEventFromJson(json).value());
      break;
    case TVK::RecordKind::kDataset:
      dataset_contexts_.push_back(TVK::DatasetContextFromJson(json).value());
      break;
    case TVK::RecordKind::kDevice:
      device_contexts_.push_back(TVK::DeviceContextFromJson(json).value());
      break;
  }
}

std::vector<ItemEvent> ServiceLife::Items(const std::wstring& item_name) const {
  std::vector<ItemEvent> items = Items();
  std::erase_if(items, [&](const ItemEvent& item) { return item.item_name() != item_name; });
  return items;
}

RunningMonitor::RunningMonitor(platform::Runtime& runtime, std::unique_ptr<EventMonitorBase> monitor)
    : runtime_(runtime), monitor_(std::move(monitor)) {
  thread_ = runtime_.StartThread("tvk-monitor", [this] {
    monitor_->Initialize();
    monitor_->StartMonitor(L"test");
  });
}

RunningMonitor::~RunningMonitor() {
  if (thread_.joinable()) Stop();
}

void RunningMonitor::Stop() {
  monitor_->StopMonitor();
  monitor_->UnInitialize();
  runtime_.Join(thread_);
}

TelemetryPolicy MakePolicy(const std::wstring& scope, std::vector<std::pair<std::wstring, std::wstring>> datasets) {
  TelemetryPolicy policy;
  policy.telemetry_scope = scope;
  std::ranges::transform(datasets, std::back_inserter(policy.datasets), [](const auto& dataset) {
    return DataSet{.id = dataset.first, .name = dataset.second, .enabled = true, .applicability = {}, .settings = {}};
  });
  return policy;
}
