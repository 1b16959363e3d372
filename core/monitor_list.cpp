// The event manager's list of monitors and its reconciliation with the policy.
#include <algorithm>

#include "client/text/string.h"
#include "core/event_manager_state.h"

using namespace manager_names;  // NOLINT(google-build-using-namespace): the manager's own constants
using platform::EventReset;
using TVK::String;

void EventManager::AddNullAndNoneDatasets() {
  State& state = *state_;
  // In the order of the ids, so that the list is the same at every start.
  std::map<std::wstring_view, const Dataset*> always;
  for (const Dataset& dataset : state.services.datasets.datasets()) {
    if (dataset.row.rule == DatasetRule::kAlways) always[dataset.row.id] = &dataset;
  }
  for (const auto& [id, dataset] : always) {
    try {
      std::unique_ptr<EventMonitorBase> monitor = dataset->factory(state.monitor_services);
      const std::lock_guard lock(state.list_lock);
      state.monitors.emplace_back(monitor.release(), nullptr);
      state.log.d(L"%s : %s add to event monitor list", L"EventManager::AddNullAndNoneDatasets", dataset->row.name);
    } catch (...) {
      state.log.e(L"%s Initialize dataset failed with exception", dataset->row.name);
    }
  }
}

bool EventManager::IsNullOrNoneDataset(const std::wstring& id, const std::wstring& name) {
  return std::ranges::any_of(state_->services.datasets.datasets(), [&](const Dataset& dataset) {
    const DatasetRow& row = dataset.row;
    return row.rule == DatasetRule::kAlways && id.find(row.id) != std::wstring::npos &&
           name.find(row.name) != std::wstring::npos;
  });
}

bool EventManager::SearchMonitorList(std::wstring name) {
  const std::lock_guard lock(state_->list_lock);
  return std::ranges::any_of(state_->monitors, [&](const auto& entry) { return entry.first->GetName() == name; });
}

bool EventManager::SearchUpdatedConfig(const std::wstring& id, const std::list<DataSet>& datasets, DataSet& found) {
  const auto entry = std::ranges::find(datasets, id, &DataSet::id);
  if (entry == datasets.end()) return false;
  found = *entry;
  return true;
}

void EventManager::OrderDatasets(std::list<DataSet>& datasets) {
  const std::lock_guard lock(state_->order_lock);
  // operator[] gives an unknown id the rank 0 for good.
  datasets.sort(
      [&](const DataSet& a, const DataSet& b) { return state_->dataset_order[a.id] < state_->dataset_order[b.id]; });
}

EventMonitorBase* EventManager::MakeMonitor(const DataSet& dataset) {
  State& state = *state_;
  const Dataset* known = state.services.datasets.FindForPolicy(dataset.id, dataset.name);
  if (known == nullptr) return nullptr;
  const DatasetRow& row = known->row;
  if (row.rule != DatasetRule::kStartsAtAnyScope &&
      !String::CaseInsesitiveFind(std::wstring(row.scopes), get_Telemetry_Scope())) {
    return nullptr;
  }
  if (row.rule == DatasetRule::kUserProcess) {
    StartDisplayProcess(L"EventManager::Initialize");
    return nullptr;
  }
  return known->factory(state.monitor_services).release();
}

void EventManager::StartDisplayProcess(const wchar_t* caller) {
  State& state = *state_;
  const auto stop = state.CopyWakers().stop;
  if (stop == nullptr) {
    state.log.e(L"%s: _hStopEvent is NULL", caller);
    return;
  }
  state.log.d(L"%s: Starting the %s Process", caller, kUserAgentProgram);
  if (caller == std::wstring_view(L"EventManager::RunAndAddToList") && IsDevicePathChange()) {
    state.log.e(L"%s:_devicePathForTelemetry is true", caller);
    state.SignalGlobalEvent(kDevicePathChangeEvent,
                            L"%s Send Notification to User Agent on DevicePath Change with telemetry scope:", caller);
  }
  state.services.user_process_agent.SetDataSetEnable(true);
  if (state.services.user_process_agent.StartUserProcess(*stop, true)) state.user_process_started = true;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the public class takes its texts by value.
void EventManager::RunAndAddToList(std::wstring dataset_id) {
  constexpr wchar_t kThis[] = L"EventManager::RunAndAddToList";
  State& state = *state_;
  TelemetryPolicy policy;
  DataSet dataset;
  if (!state.ReadPolicy(policy) || !SearchUpdatedConfig(dataset_id, policy.datasets, dataset)) {
    state.log.e(L"EventManager RunAndAddToList %s failed!", dataset_id);
    return;
  }
  if (dataset.name == kDisplayDataset) {
    StartDisplayProcess(kThis);
    return;
  }
  // The monitors of the start have had their chance to see the first run; one that comes later decides by its own last
  // device-initialisation event.
  set_FirstInvocation(false);
  try {
    std::unique_ptr<EventMonitorBase> monitor(MakeMonitor(dataset));
    const std::lock_guard lock(state.list_lock);
    if (monitor != nullptr && state.initialized) {
      std::pair<EventMonitorBase*, std::thread*> entry(monitor.get(), nullptr);
      StartMonitorThread(entry);
      monitor.release();  // NOLINT(bugprone-unused-return-value): the list owns it now
      state.monitors.push_back(entry);
      state.log.d(L"EventManager RunAndAddToList %s successfully!", dataset_id);
      return;
    }
  } catch (const std::exception& failure) {
    state.log.e(L"%s: %s failed: %s", kThis, dataset.name, String::UTF8ToUTF16(failure.what()));
  }
  state.log.e(L"EventManager RunAndAddToList %s failed!", dataset_id);
}

void EventManager::StopAndRemoveFromList(std::wstring dataset_id) {
  State& state = *state_;
  decltype(state.monitors) removed;
  {
    const std::lock_guard lock(state.list_lock);
    const auto found = std::ranges::find_if(state.monitors, [&](const auto& entry) {
      const Dataset* dataset = state.services.datasets.FindByName(entry.first->GetName());
      return dataset != nullptr && dataset->row.id == dataset_id;
    });
    if (found != state.monitors.end()) removed.splice(removed.end(), state.monitors, found);
  }
  if (removed.empty()) {
    state.log.d(L"EventManager StopAndRemoveFromList %s failed!", dataset_id);
    return;
  }
  // Out of the list first: from here on no service control reaches the monitor, so it can be stopped without a lock.
  StopMonitorQuietly(*removed.front().first);
  JoinAndDelete(removed.front());
  state.log.d(L"EventManager StopAndRemoveFromList %s successfully!", dataset_id);
}

bool EventManager::State::MayRun(const DatasetRow& row, const std::list<DataSet>& datasets, const std::wstring& scope) {
  if (row.rule == DatasetRule::kAlways) return true;
  const auto dataset = std::ranges::find(datasets, row.id, &DataSet::id);
  return dataset != datasets.end() && dataset->enabled && String::CaseInsesitiveFind(std::wstring(row.scopes), scope);
}

void EventManager::State::WaitForStoppers() {
  constexpr std::chrono::seconds kPatience(1);
  const auto stop = CopyWakers().stop;
  const platform::SteadyTime latest = services.runtime.clock().Steady() + kPatience;
  for (auto stopper = stoppers.begin(); stopper != stoppers.end();) {
    // What was given up before is only looked at.
    const auto left = *stopper->late ? std::chrono::nanoseconds(0) : latest - services.runtime.clock().Steady();
    platform::Waitable* const objects[] = {stopper->done.get(), stop.get()};
    const auto done = [&](std::chrono::milliseconds limit) {
      return services.runtime.WaitAny({objects, stop == nullptr ? 1u : 2u}, limit) == 0;
    };
    bool ended = done(std::chrono::ceil<std::chrono::milliseconds>(left));
    if (!ended && !stopper->late->exchange(true)) {
      ended = done(std::chrono::milliseconds(0));
      if (!ended) {
        log.e(L"%s: %s is still busy; the others go on", L"EventManager::StopDisabledDatasets", stopper->dataset_name);
      }
    }
    if (ended) {
      services.runtime.Join(stopper->thread);
      stopper = stoppers.erase(stopper);
    } else {
      ++stopper;
    }
  }
}

bool EventManager::State::IsStopping(const std::wstring& dataset_name) const {
  return std::ranges::find(stoppers, dataset_name, &Stopper::dataset_name) != stoppers.end();
}

void EventManager::StopDisabledDatasets(std::list<DataSet>& datasets, const std::wstring& scope) {
  constexpr wchar_t kThis[] = L"EventManager::StopDisabledDatasets";
  State& state = *state_;
  state.log.d(L"%s Enter: ", kThis);
  std::vector<const DatasetRow*> to_stop;
  {
    const std::lock_guard lock(state.list_lock);
    for (const auto& entry : state.monitors) {
      const Dataset* dataset = state.services.datasets.FindByName(entry.first->GetName());
      if (dataset == nullptr) continue;
      if (!State::MayRun(dataset->row, datasets, scope)) to_stop.push_back(&dataset->row);
    }
  }
  // Side by side: a monitor that is busy in a sample does not keep the others running.
  for (const DatasetRow* row : to_stop) {
    try {
      State::Stopper stopper{std::wstring(row->name),
                             state.services.runtime.MakeEvent(EventReset::kManual),
                             std::make_shared<std::atomic<bool>>(false),
                             {}};
      stopper.thread = state.services.runtime.StartThread(
          "tvk-stop", [this, id = std::wstring(row->id), done = stopper.done, late = stopper.late] {
            StopAndRemoveFromList(id);
            done->Set();
            const auto scope_changed = state_->CopyWakers().telemetry_scope;
            if (*late && scope_changed != nullptr) scope_changed->Release(1);
          });
      state.stoppers.push_back(std::move(stopper));
    } catch (const std::system_error&) {
      StopAndRemoveFromList(std::wstring(row->id));
    }
  }
  state.WaitForStoppers();

  if (state.user_process_started && !ValidateDisplayEventWithNewPolicy()) {
    state.log.d(L"Stopping the Display event monitor if it already not stopped");
    state.services.user_process_agent.SetDataSetEnable(false);
    state.services.user_process_agent.StopUserProcess(1);
    state.user_process_started = false;
  }
  state.log.d(L"%s Exit: ", kThis);
}
