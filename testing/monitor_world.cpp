#include "testing/monitor_world.h"

#include <algorithm>
#include <iterator>

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

ServiceLife::ServiceLife(MonitorWorld& world)
    : store({.file = world.folder.path() / TVK::kStoreFileName, .limits = {}}, world.runtime.clock()),
      records_(store),
      machine_(world.machine, world.runtime),
      second_tick_(world.runtime),
      services_{world.runtime,
                world.machine,
                store,
                world.config,
                machine_.machine_information,
                machine_.tvk_info,
                machine_.hard_disks,
                machine_.batteries,
                news,
                manager,
                second_tick_,
                consent} {
  manager.store = &store;
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
