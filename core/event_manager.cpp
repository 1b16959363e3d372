// Start-up, shut-down and the properties of the event manager.
#include "tvk/event_manager.h"

#include <array>

#include "client/records/records.h"
#include "client/text/string.h"
#include "core/event_manager_state.h"
#include "platform/service_control_event.h"

using namespace manager_names;  // NOLINT(google-build-using-namespace): the manager's own constants
using platform::EventReset;
using TVK::String;

const std::wstring EventManager::kDeviceContextDatasetID = L"03D21916-F27E-41EB-B8B3-77372521FBC7";

EventManager::State::State(EventManager& manager, const ManagerServices& given, SERVICE_STATUS_HANDLE handle)
    : services(given),
      identity(manager),
      second_tick(given.runtime),
      monitor_services{given.runtime,  given.machine, given.store, given.config, given.machine_information,
                       given.tvk_info, identity,      second_tick},
      service_handle(handle) {
  TVK::utility::InitLog(log, L"EventManager.log", 4);
  for (const DatasetRow& row : services.datasets.rows())
    dataset_order[row.id] = row.rank;
  const DatasetRow* application = services.datasets.FindByRule(DatasetRule::kApplication);
  if (application != nullptr) application_events = application->factory(handle, false, monitor_services);
}

EventManager::State::Wakers EventManager::State::CopyWakers() {
  const std::lock_guard lock(value_lock);
  return wakers;
}

std::list<std::pair<EventMonitorBase*, std::thread*>> EventManager::State::CopyList() {
  const std::lock_guard lock(list_lock);
  auto listed = monitors;
  listed.remove_if([&](const auto& entry) { return IsStopping(entry.first->GetName()); });
  return listed;
}

bool EventManager::State::HasReturned(EventMonitorBase* monitor) {
  const std::lock_guard lock(list_lock);
  return returned.contains(monitor);
}

bool EventManager::State::ReadPolicy(TelemetryPolicy& policy) {
  if (!services.config.GetTelemetryPolicy(policy)) return false;
  std::set<const DatasetRow*> seen;
  for (auto dataset = policy.datasets.begin(); dataset != policy.datasets.end();) {
    const DatasetRow* row = services.datasets.FindForPolicy(dataset->id, dataset->name);
    // An entry with a dataset's id and another name means nothing; it must not stand for the one that does.
    const bool misnamed = std::ranges::any_of(services.datasets.rows(), [&](const DatasetRow& other) {
      return other.id == dataset->id && other.name != dataset->name;
    });
    if (misnamed || (row != nullptr && !seen.insert(row).second)) {
      dataset = policy.datasets.erase(dataset);
      continue;
    }
    if (row != nullptr) dataset->id = row->id;
    ++dataset;
  }
  return true;
}

bool EventManager::State::TakePolicy(TelemetryPolicy& policy, std::wstring& old_scope) {
  const std::lock_guard lock(policy_lock);
  if (!ReadPolicy(policy)) return false;
  if (!IsTelemetryScope(String::ToLower(policy.telemetry_scope))) {
    // Consent that nobody understands is none.
    log.e(L"%s: check telemetry_scope=?none failed %s", L"EventManager::OnNotification", policy.telemetry_scope);
    policy.telemetry_scope = L"none";
  }
  {
    const std::lock_guard values(value_lock);
    old_scope = std::exchange(telemetry_scope, policy.telemetry_scope);
  }
  EventMonitorBase::SetTelemetryScope(policy.telemetry_scope);
  return true;
}

void EventManager::State::CallMonitor(const wchar_t* caller, EventMonitorBase& monitor,
                                      const std::function<void(EventMonitorBase&)>& call) {
  try {
    call(monitor);
  } catch (const std::exception& failure) {
    log.e(L"%s: %s failed: %s", caller, monitor.GetName(), String::UTF8ToUTF16(failure.what()));
  } catch (...) {
    log.e(L"%s: %s failed: %s", caller, monitor.GetName(), L"unknown exception");
  }
}

EventManager::EventManager(const ManagerServices& services, SERVICE_STATUS_HANDLE handle)
    : state_(std::make_unique<State>(*this, services, handle)) {
  state_->schema_ver = L"2.0";
}

EventManager::~EventManager() = default;

void EventManager::CreateGlobalEvents() {
  constexpr std::array kNames = {kTelemetryPolicyChangeEvent, kTvkPolicyChangeEvent, kDevicePathChangeEvent};
  for (std::size_t i = 0; i < kNames.size(); ++i) {
    platform::NamedEventResult made = state_->services.runtime.MakeNamedEvent(kNames[i], EventReset::kAuto, false,
                                                                              platform::EventAccess::kSessionUsers);
    if (made.event == nullptr) {
      state_->log.e(L"EventManager Initialize CreateEvent \"%s\" return error %d!", kNames[i], made.error);
      return;
    }
    state_->global_events[i] = std::move(made.event);
  }
}

void EventManager::Initialize(TVK::DeviceIdAgent* agent) {
  State& state = *state_;
  const std::lock_guard lock(state.manager_lock);
  if (!state.subscription_id.empty()) state.services.bus.Unsubscribe(state.subscription_id);
  state.subscription_id =
      state.services.bus.Subscribe([this](TVKNotificationData& data) { OnNotification(data); }, false);
  if (agent == nullptr) return;
  EndNotificationThread();
  {
    // Manual-reset: the notification thread and the start of the user agent both wait for it.
    const std::lock_guard values(state.value_lock);
    state.wakers.stop = state.services.runtime.MakeEvent(EventReset::kManual);
  }
  set_devidAgent(agent);

  if (!state.initialized) {
    state.initialized = true;
    state.log.d(L"EventManager Initialize");
    CreateGlobalEvents();
    {
      // Before the policies are read: news of a change that comes meanwhile then waits for the notification thread.
      const std::lock_guard values(state.value_lock);
      state.wakers.telemetry_scope = state.services.runtime.MakeSemaphore(0, 1);
      state.wakers.tvk_policy = state.services.runtime.MakeEvent(EventReset::kAuto);
    }
    TelemetryPolicy policy;
    std::wstring old_scope;
    if (!state.TakePolicy(policy, old_scope)) {
      state.log.e(L"EventManager Initialize GetTelemetryPolicy() return fail!");
      return;
    }
    state.log.d(L"EventManager Initialize Get TelemetryPolicy successfully.");
    AddNullAndNoneDatasets();
    AddPolicyDatasets(policy);

    std::wstring id;
    agent->GetDeviceID(id);
    state.log.d(L"EventManager Initialize DeviceId is \"%s\"", id);
    std::wstring legacy_id;
    const unsigned long error = agent->GetLegacyDeviceID(legacy_id);
    state.log.d(L"EventManager Initialize Legacy DeviceId is \"%s\" error = %ld", legacy_id, error);
    {
      const std::lock_guard values(state.value_lock);
      state.device_id = id;
      state.legacy_device_id = legacy_id;
    }
    set_FirstInvocation(false);  // of a former life
    {
      const std::lock_guard values(state.value_lock);
      state.context_change_pending = false;  // likewise
    }
    DeviceContext context;
    LogDeviceContextData(true, context, false);
    state.log.d(L"EventManager Initialize device_context_id is \"%s\"", context.device_context_id());
    set_NoHashNetworkData(policy.Setting(kNoHashNetworkDataSetting) == L"true");
  }
  StartNotificationThread();
}

void EventManager::AddPolicyDatasets(TelemetryPolicy& policy) {
  State& state = *state_;
  const EligibilityFilter filter(state.services.machine_information.traits());
  if (!filter.IsApplicable(policy.applicability)) {
    state.log.d(L"TelemetryPolicy not Applicable");
    return;
  }
  OrderDatasets(policy.datasets);
  for (const DataSet& dataset : policy.datasets) {
    try {
      if (!dataset.enabled) {
        state.log.d(L"EventManager Initialize dataset : %s is not enable", dataset.name);
      } else if (!filter.IsApplicable(dataset.applicability)) {
        state.log.d(L"EventManager Initialize dataset : %s is not applicable", dataset.name);
      } else if (!IsNullOrNoneDataset(dataset.id, dataset.name) && !SearchMonitorList(dataset.name)) {
        EventMonitorBase* monitor = MakeMonitor(dataset);
        if (monitor == nullptr) continue;
        const std::lock_guard lock(state.list_lock);
        state.monitors.emplace_back(monitor, nullptr);
        state.log.d(L"EventManager Initialize dataset : %s add to event monitor list", dataset.name);
      }
    } catch (...) {
      state.log.e(L"%s Initialize dataset failed with exception", dataset.name);
    }
  }
}

void EventManager::StartNotificationThread() {
  State& state = *state_;
  {
    const std::lock_guard values(state.value_lock);
    state.wakers.device_context_change = state.services.runtime.MakeEvent(EventReset::kAuto);
  }
  try {
    state.notification_thread =
        state.services.runtime.StartThread("tvk-notify", [this] { NotificationProcessorThread(); });
  } catch (const std::system_error&) {
    state.log.e(L"EventManager Initialize _thread_telemetry failed!");
  }
}

void EventManager::EndNotificationThread() {
  State& state = *state_;
  if (!state.notification_thread.joinable()) return;
  const auto wakers = state.CopyWakers();
  if (wakers.stop != nullptr) wakers.stop->Set();
  state.services.runtime.Join(state.notification_thread);
}

void EventManager::StartMonitorThread(std::pair<EventMonitorBase*, std::thread*>& entry) {
  EventMonitorBase* const monitor = entry.first;
  entry.second = new std::thread(state_->services.runtime.StartThread("tvk-monitor", [this, monitor] {
    try {
      monitor->Initialize();
      monitor->StartMonitor(L"test");
    } catch (const std::exception& failure) {
      state_->log.e(L"EventManager EventMonitor Initalize or startMonitor error! %s",
                    String::UTF8ToUTF16(failure.what()));
    } catch (...) {
      state_->log.e(L"EventManager EventMonitor Initalize or startMonitor error! %s", L"unknown exception");
    }
    const std::lock_guard lock(state_->list_lock);
    state_->returned.insert(monitor);
  }));
}

void EventManager::InitAndStartEventMonitors() {
  State& state = *state_;
  state.log.d(L"%s: Entry", L"EventManager::InitAndStartEventMonitors");
  const std::lock_guard lock(state.list_lock);
  for (auto& entry : state.monitors) {
    // A notification may have come first and brought a monitor that runs already.
    if (entry.second != nullptr) continue;
    state.log.d(L"EventManager Initialize is starting %s", entry.first->GetName());
    state.CallMonitor(L"EventManager::InitAndStartEventMonitors", *entry.first,
                      [&](EventMonitorBase&) { StartMonitorThread(entry); });
  }
  state.log.d(L"%s: Exit", L"EventManager::InitAndStartEventMonitors");
}

unsigned long EventManager::OnServiceControlHandle(unsigned long control, unsigned long event_type, void* event_data,
                                                   void* context) {
  {
    const std::lock_guard lock(state_->list_lock);
    for (const auto& [monitor, thread] : state_->monitors) {
      state_->CallMonitor(L"EventManager::OnServiceControlHandle", *monitor, [&](EventMonitorBase& one) {
        one.OnServiceControlHandle(control, event_type, event_data, context);
      });
    }
  }
  if (const auto event = platform::DecodeServiceControl(control, event_type, event_data)) OnSystemEvent(*event);
  return 0;
}

void EventManager::OnSystemEvent(const platform::SystemEvent& event) {
  const std::lock_guard lock(state_->list_lock);
  for (const auto& [monitor, thread] : state_->monitors) {
    state_->CallMonitor(L"EventManager::OnSystemEvent", *monitor,
                        [&](EventMonitorBase& one) { one.OnSystemEvent(event); });
  }
}

void EventManager::StopMonitorQuietly(EventMonitorBase& monitor) {
  state_->CallMonitor(L"EventManager::Stop", monitor, [](EventMonitorBase& one) { one.StopMonitor(); });
  state_->CallMonitor(L"EventManager::Stop", monitor, [](EventMonitorBase& one) { one.UnInitialize(); });
}

void EventManager::JoinAndDelete(const std::pair<EventMonitorBase*, std::thread*>& entry) {
  if (entry.second != nullptr && entry.second->joinable()) state_->services.runtime.Join(*entry.second);
  delete entry.second;
  {
    const std::lock_guard lock(state_->list_lock);
    state_->returned.erase(entry.first);
  }
  delete entry.first;
}

void EventManager::Stop() {
  State& state = *state_;
  const std::lock_guard lock(state.manager_lock);
  decltype(state.monitors) ended;
  bool was_initialized = false;
  {
    // From here on the monitors are out of the reach of service controls and of the notification thread, which keeps
    // only those that it is removing itself; and nothing is added any more.
    const std::lock_guard list(state.list_lock);
    was_initialized = state.initialized.exchange(false);
    ended.swap(state.monitors);
  }
  if (was_initialized) {
    const auto wakers = state.CopyWakers();
    if (wakers.stop != nullptr) wakers.stop->Set();
    for (const auto& entry : ended)
      StopMonitorQuietly(*entry.first);
    EndNotificationThread();
    for (State::Stopper& stopper : state.stoppers)
      state.services.runtime.Join(stopper.thread);
    state.stoppers.clear();
    const std::lock_guard values(state.value_lock);
    state.wakers.telemetry_scope = nullptr;
  }
  for (auto& event : state.global_events)
    event = nullptr;
  {
    const std::lock_guard values(state.value_lock);
    state.wakers.tvk_policy = nullptr;
    state.wakers.device_context_change = nullptr;
  }
  if (!state.subscription_id.empty()) {
    state.services.bus.Unsubscribe(state.subscription_id);
    state.subscription_id.clear();
  }
  if (state.user_process_started.exchange(false)) {
    state.log.d(L"%s: Stopping the %s Process", L"EventManager::Stop", kUserAgentProgram);
    state.services.user_process_agent.StopUserProcess(0);
    const std::lock_guard values(state.value_lock);
    state.wakers.stop = nullptr;
  }
  for (const auto& entry : ended)
    JoinAndDelete(entry);
  state.log.d(L"EventManager Stop");
}
