#include "testing/manager_world.h"
#include "platform/system_event.h"

#include <algorithm>
#include <stdexcept>

namespace {

using Place = MonitorScript::Place;

class ScriptedMonitor final : public EventMonitorBase {
 public:
  ScriptedMonitor(const TVK::MonitorServices& monitor_services, MonitorScript& script, const TVK::DatasetRow& row)
      : EventMonitorBase(nullptr, false, monitor_services),
        script_(script),
        row_(row),
        stop_(monitor_services.runtime.MakeEvent(platform::EventReset::kManual)) {
    ++script_.alive;
  }
  ~ScriptedMonitor() override { --script_.alive; }

  void Initialize() override { FailIfTold(Place::kInitialize); }
  void UnInitialize() override {
    const bool wrote = services().consent.WriteIfAdmitted(row_, [] {});
    Act(wrote ? L"uninitialize, may write" : L"uninitialize", Place::kUnInitialize);
  }
  void StartMonitor(std::wstring argument) override {
    Act(L"start(" + argument + L")", Place::kStart);
    if (script_.shortage.first == row_.name) services().on_shortage(row_.id, script_.shortage.second);
    ++script_.running;
    services().runtime.Wait(*stop_, platform::kForever);
    --script_.running;
  }
  void StopMonitor() override {
    stop_->Set();
    Act(L"stop", Place::kStop);
  }
  void RestartMonitor() override { Act(L"restart", Place::kRestart); }
  std::wstring GetName() const override { return std::wstring(row_.name); }
  unsigned long OnServiceControlHandle(unsigned long control, unsigned long event_type, void* event_data,
                                       void* context) override {
    const auto value = [](void* number) { return std::to_wstring(number == nullptr ? 0 : *static_cast<int*>(number)); };
    Act(L"control " + std::to_wstring(control) + L"," + std::to_wstring(event_type) + L"," + value(event_data) + L"," +
            value(context),
        Place::kControl);
    return 120;
  }
  void OnSystemEvent(const platform::SystemEvent& event) override {
    script_.Note(L"system event " + std::to_wstring(event.index()), GetName());
  }
  void ReadAndUpdateDatasetSettings() override { Act(L"settings", Place::kSettings); }
  void LogDatasetContext(bool anew) override { Act(anew ? L"context anew" : L"context", Place::kContextChange); }
  int LogDevInitEvent() override {
    script_.Note(L"device init", GetName());
    return 0;
  }

 private:
  void FailIfTold(Place place) const {
    if (script_.failure == std::pair(GetName(), place)) throw std::runtime_error("told to fail");
  }
  void Act(const std::wstring& what, Place place) {
    script_.Note(what, GetName());
    const MonitorScript::Gate held = script_.gate;
    if (held.event != nullptr && held.dataset_name == row_.name && held.place == place) {
      services().runtime.Wait(*held.event, platform::kForever);
    }
    FailIfTold(place);
  }

  MonitorScript& script_;
  const TVK::DatasetRow& row_;
  const std::unique_ptr<platform::Event> stop_;
};

}  // namespace

TVK::DatasetTable ScriptedDatasets(MonitorScript& script) {
  std::vector<TVK::Dataset> datasets;
  for (const TVK::DatasetRow& row : TVK::kDatasetRows) {
    datasets.push_back({row});
    if (row.rule == TVK::DatasetRule::kUserProcess || row.rule == TVK::DatasetRule::kDeviceContext) continue;
    datasets.back().factory = [&script, &row](const TVK::MonitorServices& services) {
      if (script.failure == std::pair(std::wstring(row.name), Place::kMake)) throw std::runtime_error("told to fail");
      return std::make_unique<ScriptedMonitor>(services, script, row);
    };
  }
  return TVK::DatasetTable(std::move(datasets));
}

std::wstring IdOf(const std::wstring& dataset_name) {
  const auto* const row = std::ranges::find(TVK::kDatasetRows, dataset_name, &TVK::DatasetRow::name);
  return row == TVK::kDatasetRows.end() ? std::wstring() : std::wstring(row->id);
}

TelemetryPolicy PolicyOf(const std::wstring& scope, const std::vector<std::wstring>& dataset_names) {
  std::vector<std::pair<std::wstring, std::wstring>> datasets;
  for (const TVK::DatasetRow& row : TVK::kDatasetRows) {
    if (dataset_names.empty()) datasets.emplace_back(row.id, row.name);
  }
  for (const std::wstring& name : dataset_names)
    datasets.emplace_back(IdOf(name), name);
  return MakePolicy(scope, std::move(datasets));
}

ManagerLife::ManagerLife(platform::Runtime& runtime, platform::Machine& machine, SettableConfigAgent& config_agent,
                         const TempFolder& folder, const TVK::DatasetTable& table)
    : config(config_agent),
      region_changed(runtime.MakeEvent(platform::EventReset::kAuto)),
      composition(runtime, machine, {.data_folder = folder.path(), .policy_file = {}},
                  {.config = &config,
                   .datasets = &table,
                   .user_process = &user_process,
                   .region_change = region_changed.get()}),
      records(composition.store()),
      manager(composition.manager_services()) {
  composition.Start();
}

ManagerLife::~ManagerLife() {
  manager.Stop();
}

void ManagerLife::Start() {
  manager.Initialize(&device_ids);
  manager.InitAndStartEventMonitors();
}

void ManagerLife::Change(TelemetryPolicy policy) {
  config.SetPolicy(std::move(policy));
  composition.bus().Publish(TVKNotificationData(4, 14, L"{}"));
}
