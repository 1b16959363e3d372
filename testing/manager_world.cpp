#include "testing/manager_world.h"

#include <algorithm>
#include <stdexcept>

namespace {

using Place = MonitorScript::Place;

class ScriptedMonitor final : public EventMonitorBase {
 public:
  ScriptedMonitor(const MonitorServices& monitor_services, MonitorScript& script, std::wstring name)
      : EventMonitorBase(nullptr, false, monitor_services),
        script_(script),
        name_(std::move(name)),
        stop_(monitor_services.runtime.MakeEvent(platform::EventReset::kManual)) {
    ++script_.alive;
  }
  ~ScriptedMonitor() override { --script_.alive; }

  void Initialize() override { FailIfTold(Place::kInitialize); }
  void UnInitialize() override { script_.Note(L"uninitialize", name_); }
  void StartMonitor(std::wstring argument) override {
    script_.Note(L"start(" + argument + L")", name_);
    FailIfTold(Place::kStart);
    ++script_.running;
    services().runtime.Wait(*stop_, platform::kForever);
    --script_.running;
  }
  void StopMonitor() override {
    script_.Note(L"stop", name_);
    stop_->Set();
    const auto [held, gate] = script_.stop_gate;
    if (held == name_) services().runtime.Wait(*gate, platform::kForever);
    FailIfTold(Place::kStop);
  }
  void RestartMonitor() override {
    script_.Note(L"restart", name_);
    FailIfTold(Place::kRestart);
  }
  std::wstring GetName() const override { return name_; }
  unsigned long OnServiceControlHandle(unsigned long control, unsigned long event_type, void* event_data,
                                       void* context) override {
    script_.Note(L"control " + std::to_wstring(control) + L"," + std::to_wstring(event_type) + L"," +
                     std::to_wstring(event_data == nullptr ? 0 : *static_cast<int*>(event_data)) + L"," +
                     std::to_wstring(context == nullptr ? 0 : *static_cast<int*>(context)),
                 name_);
    FailIfTold(Place::kControl);
    return 120;
  }
  void ReadAndUpdateDatasetSettings() override {
    script_.Note(L"settings", name_);
    FailIfTold(Place::kSettings);
  }
  void LogDatasetContext(bool anew) override {
    script_.Note(anew ? L"context anew" : L"context", name_);
    FailIfTold(Place::kContextChange);
  }
  int LogDevInitEvent() override {
    script_.Note(L"device init", name_);
    return 0;
  }

 private:
  void FailIfTold(Place place) const {
    if (script_.failure == std::pair(name_, place)) throw std::runtime_error("told to fail");
  }

  MonitorScript& script_;
  const std::wstring name_;
  const std::unique_ptr<platform::Event> stop_;
};

}  // namespace

DatasetTable ScriptedDatasets(MonitorScript& script) {
  std::vector<Dataset> datasets;
  for (const DatasetRow& row : kDatasetRows) {
    datasets.push_back({row});
    if (row.rule == DatasetRule::kUserProcess || row.rule == DatasetRule::kDeviceContext) continue;
    datasets.back().factory = [&script, name = std::wstring(row.name)](const MonitorServices& services) {
      if (script.failure == std::pair(name, Place::kMake)) throw std::runtime_error("told to fail");
      return std::make_unique<ScriptedMonitor>(services, script, name);
    };
  }
  return DatasetTable(std::move(datasets));
}

std::wstring IdOf(const std::wstring& dataset_name) {
  const auto* const row = std::ranges::find(kDatasetRows, dataset_name, &DatasetRow::name);
  return row == kDatasetRows.end() ? std::wstring() : std::wstring(row->id);
}

TelemetryPolicy PolicyOf(const std::wstring& scope, std::vector<std::wstring> dataset_names) {
  std::vector<std::pair<std::wstring, std::wstring>> datasets;
  if (dataset_names.empty()) {
    for (const DatasetRow& row : kDatasetRows)
      datasets.emplace_back(row.id, row.name);
  }
  for (const std::wstring& name : dataset_names)
    datasets.emplace_back(IdOf(name), name);
  return MakePolicy(scope, std::move(datasets));
}

ManagerLife::ManagerLife(platform::Runtime& runtime, platform::Machine& machine, SettableConfigAgent& config_agent,
                         const TempFolder& folder, const DatasetTable& table)
    : config(config_agent),
      service(runtime, machine, config, folder),
      bus(runtime),
      region_changed(runtime.MakeEvent(platform::EventReset::kAuto)),
      manager({runtime, machine, service.store, config, bus, service.machine_information, service.region_information,
               service.tvk_info, table, user_process, region_changed.get()}) {}

ManagerLife::~ManagerLife() {
  manager.Stop();
}

void ManagerLife::Start() {
  manager.Initialize(&device_ids);
  manager.InitAndStartEventMonitors();
}

void ManagerLife::Change(TelemetryPolicy policy) {
  config.SetPolicy(std::move(policy));
  bus.Publish(TVKNotificationData(4, 14, L"{}"));
}
