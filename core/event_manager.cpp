// The shell around the manager's parts: start-up, shut-down and the operations that hosts call.
#include "tvk/event_manager.h"

#include <atomic>
#include <mutex>

#include "client/log/guarded_thread.h"
#include "client/log/service_logs.h"
#include "core/application_events.h"
#include "core/dataset_log.h"
#include "core/dataset_status.h"
#include "core/manager_access.h"
#include "core/notifications.h"
#include "core/reconciler.h"
#include "core/session_datasets.h"
#include "platform/service_control_event.h"

using Values = TVK::IdentityValues::Values;

const std::wstring EventManager::kDeviceContextDatasetID{TVK::DatasetRowNamed(L"DeviceContext").id};

namespace {

// What `ask` gives; an empty value when it fails, which is logged: no exception may reach the host.
template <typename Ask>
auto AskLogged(const TVK::Log& log, const wchar_t* name, Ask ask) noexcept {
  decltype(ask()) answer{};
  TVK::CallLogged(log, name, [&] { answer = ask(); });
  return answer;
}

}  // namespace

struct EventManager::Parts final : TVK::ManagerAccess {
  Parts(EventManager& manager, const TVK::ManagerServices& given, SERVICE_STATUS_HANDLE handle);

  TVK::ManagerParts View() {
    return {services, monitor_services, log,      initialized, identity,
            policy,   notifier,         monitors, display,     device_context};
  }
  TVK::SessionRecorder& session_recorder() override { return session_datasets; }
  TVK::ManagerStatus Status() override;
  TVK::TakenEvent TakeApplicationEvent(const std::wstring& item_name, const ItemData& data,
                                       TVK::EventSender sender) override {
    return application_events.Take(item_name, data, sender);
  }
  /// Asks the agent for the two ids; one that throws has none.
  void ReadDeviceIds(TVK::DeviceIdAgent& agent);

  const TVK::ManagerServices services;
  TVK::Log log;
  std::atomic<bool> initialized = false;
  TVK::IdentityValues identity;
  TVK::PolicyView policy;
  TVK::SecondTick second_tick;
  const TVK::MonitorServices monitor_services;
  TVK::Notifier notifier;
  TVK::DisplayProcess display;
  TVK::DeviceContextRecord device_context;
  TVK::MonitorList monitors;
  TVK::ApplicationEvents application_events;
  TVK::SessionDatasets session_datasets;
  TVK::DatasetLog dataset_log;
  TVK::Reconciler reconciler;
  TVK::Notifications notifications;

  std::mutex manager_lock;       ///< Held by Initialize and Stop for their whole run.
  std::wstring subscription_id;  ///< Guarded by manager_lock.
};

EventManager::Parts::Parts(EventManager& manager, const TVK::ManagerServices& given, SERVICE_STATUS_HANDLE handle)
    : services(given),
      log([] {
        TVK::Log opened;
        TVK::utility::InitLog(opened, TVK::ServiceLog(L"EventManager.log"), 4);
        return opened;
      }()),
      identity(given.store, given.tvk_info, given.datasets, handle),
      policy(given.runtime, given.config, given.datasets, given.machine_information, log),
      second_tick(given.runtime),
      monitor_services{given.runtime,
                       given.machine,
                       given.store,
                       given.config,
                       given.machine_information,
                       given.tvk_info,
                       given.hard_disks,
                       given.batteries,
                       given.bus,
                       identity,
                       second_tick,
                       policy,
                       [this](std::wstring_view dataset_id, TVK::Shortage shortage) {
                         const TVK::MonitorList::Entry entry = monitors.Find(dataset_id);
                         if (entry == nullptr) return;
                         entry->NoteShortage(shortage);
                         notifier.TellShortage();
                       }},
      notifier(given.runtime, log, given.user_process_agent.Exists()),
      display(given.user_process_agent, policy, notifier, log, given.datasets),
      device_context(services, log, identity, notifier, display),
      application_events(monitor_services, given.datasets, policy, log, initialized),
      session_datasets(monitor_services, given.datasets, policy, log),
      dataset_log(View(), session_datasets),
      reconciler(
          View(), [&manager](const std::wstring& id) { manager.RunAndAddToList(id); },
          [&manager](const std::wstring& id) { manager.StopAndRemoveFromList(id); }),
      notifications(
          View(), reconciler,
          [&manager] {
            DeviceContext context;
            manager.LogDeviceContextData(true, context, true);
          },
          application_events, dataset_log) {}

TVK::ManagerStatus EventManager::Parts::Status() {
  TVK::ManagerStatus status{initialized, policy.scope(), TVK::StatusOfDatasets(View(), session_datasets)};
  for (TVK::DatasetStatus& one : status.datasets) {
    const TVK::DatasetRule rule = one.dataset->row.rule;
    const bool is_own = rule == TVK::DatasetRule::kApplication || rule == TVK::DatasetRule::kDeviceContext;
    if (one.runs && is_own) one.since = dataset_log.Since(one.dataset->row.id);
  }
  TVK::AskNextReports(monitors, status.datasets);
  return status;
}

void EventManager::Parts::ReadDeviceIds(TVK::DeviceIdAgent& agent) {
  constexpr unsigned long kGeneralFailure = 31;  // ERROR_GEN_FAILURE
  std::wstring id;
  TVK::CallLogged(log, L"EventManager::Initialize: GetDeviceID", [&] { agent.GetDeviceID(id); });
  log.d(L"EventManager Initialize DeviceId is \"%s\"", id);
  std::wstring legacy_id;
  unsigned long error = kGeneralFailure;
  TVK::CallLogged(log, L"EventManager::Initialize: GetLegacyDeviceID",
                  [&] { error = agent.GetLegacyDeviceID(legacy_id); });
  log.d(L"EventManager Initialize Legacy DeviceId is \"%s\" error = %ld", legacy_id, error);
  identity.Set(&Values::device_id, id);
  identity.Set(&Values::legacy_device_id, legacy_id);
}

EventManager::EventManager(const TVK::ManagerServices& services, SERVICE_STATUS_HANDLE handle)
    : parts_(std::make_unique<Parts>(*this, services, handle)) {}

EventManager::~EventManager() = default;

TVK::ManagerAccess& EventManager::access() {
  return *parts_;
}

bool EventManager::is_initialized() const {
  const std::lock_guard lock(parts_->manager_lock);
  // Without an agent it only subscribes.
  return parts_->initialized || !parts_->subscription_id.empty();
}

bool EventManager::FollowsNews() const {
  const std::lock_guard lock(parts_->manager_lock);
  return parts_->notifications.IsRunning();
}

void EventManager::Initialize(TVK::DeviceIdAgent* agent) {
  const std::lock_guard lock(parts_->manager_lock);
  const bool done = TVK::CallLogged(parts_->log, L"EventManager::Initialize", [&] {
    try {
      InitializeLocked(agent);
    } catch (const std::exception& failure) {
      parts_->View().Remark(std::string("the event manager cannot start: ") + TVK::FailureText(failure));
      throw;
    }
  });
  if (done) return;
  StopLocked();
}

void EventManager::InitializeLocked(TVK::DeviceIdAgent* agent) {
  Parts& parts = *parts_;
  if (!parts.subscription_id.empty()) parts.services.bus.Unsubscribe(parts.subscription_id);
  parts.subscription_id = parts.services.bus.Subscribe(
      [&parts](TVKNotificationData& data) { parts.notifications.OnNotification(data); }, false);
  if (agent == nullptr) return;
  parts.notifications.End();
  parts.notifier.MakeStopEvent();
  set_devidAgent(agent);

  if (!parts.initialized) {
    parts.initialized = true;
    parts.session_datasets.SetOpen(true);
    parts.monitors.Open();
    parts.dataset_log.Forget();
    parts.log.d(L"EventManager Initialize");
    parts.notifier.CreateGlobalEvents();
    // Before the policies are read: news of a change that comes meanwhile then waits for the notification thread.
    parts.notifier.MakePolicyWakeUps();
    std::wstring old_scope;
    const TVK::PolicyView::Policy policy = parts.policy.ReadWithScope(old_scope);
    if (policy == nullptr) {
      parts.log.e(L"EventManager Initialize GetTelemetryPolicy() return fail!");
      parts.reconciler.NoteWithdrawals();  // without a policy nobody has consented
      return;
    }
    parts.log.d(L"EventManager Initialize Get TelemetryPolicy successfully.");
    parts.reconciler.NoteWithdrawals();
    parts.reconciler.AddNullAndNoneDatasets();
    parts.reconciler.AddPolicyDatasets(*policy);
    parts.ReadDeviceIds(*agent);
    set_FirstInvocation(false);  // of a former life
    parts.device_context.ForgetAnnouncement();
    DeviceContext context;
    LogDeviceContextData(true, context, false);
    parts.log.d(L"EventManager Initialize device_context_id is \"%s\"", context.device_context_id());
    set_NoHashNetworkData(policy->no_hash_network_data);
  }
  parts.notifier.MakeDeviceContextWakeUp();
  parts.notifications.Start();
}

void EventManager::InitAndStartEventMonitors() {
  constexpr wchar_t kThis[] = L"EventManager::InitAndStartEventMonitors";
  TVK::CallLogged(parts_->log, kThis, [&] {
    parts_->log.d(L"%s: Entry", kThis);
    const std::vector<TVK::MonitorList::Entry> listed = parts_->monitors.Listed();
    std::size_t without_thread = 0;
    for (const TVK::MonitorList::Entry& entry : listed) {
      // A notification may have come first and brought a monitor that runs already.
      if (entry->IsStarted()) continue;
      parts_->log.d(L"EventManager Initialize is starting %s", entry->row().name);
      if (entry->Start(kThis) || !entry->IsListed()) continue;
      ++without_thread;
      parts_->notifier.TellShortage();
    }
    if (without_thread > 0) {
      parts_->View().Remark("the system gave no thread to " + std::to_string(without_thread) + " of " +
                            std::to_string(listed.size()) + " monitors; they are started when it does");
    }
    parts_->log.d(L"%s: Exit", kThis);
    parts_->dataset_log.Tell();
  });
}

unsigned long EventManager::OnServiceControlHandle(unsigned long control, unsigned long event_type, void* event_data,
                                                   void* context) {
  constexpr wchar_t kThis[] = L"EventManager::OnServiceControlHandle";
  TVK::CallLogged(parts_->log, kThis, [&] {
    parts_->monitors.CallEach(kThis, [&](EventMonitorBase& monitor) {
      monitor.OnServiceControlHandle(control, event_type, event_data, context);
    });
  });
  TVK::CallLogged(parts_->log, kThis, [&] {
    if (const auto event = platform::DecodeServiceControl(control, event_type, event_data)) OnSystemEvent(*event);
  });
  return 0;
}

void EventManager::OnSystemEvent(const platform::SystemEvent& event) {
  constexpr wchar_t kThis[] = L"EventManager::OnSystemEvent";
  TVK::CallLogged(parts_->log, kThis, [&] {
    parts_->monitors.CallEach(kThis, [&](EventMonitorBase& monitor) { monitor.OnSystemEvent(event); });
  });
}

void EventManager::Stop() {
  const std::lock_guard lock(parts_->manager_lock);
  StopLocked();
}

void EventManager::StopLocked() {
  Parts& parts = *parts_;
  parts.initialized = false;
  // From here on nothing is added, and the monitors are out of the reach of controls and handlers. Those that a stopper
  // has in hand stay with it.
  const std::vector<TVK::MonitorList::Entry> ended = parts.monitors.Close();
  // A step that fails keeps none of the others from being done: what is not ended here is ended by nobody.
  const auto step = [&](auto&& call) { TVK::CallLogged(parts.log, L"EventManager::Stop", call); };
  if (const auto stop = parts.notifier.wake_ups().stop; stop != nullptr) stop->Set();
  for (const TVK::MonitorList::Entry& entry : ended)
    step([&] { entry->StopMonitor(); });
  step([&] { parts.notifications.End(); });
  step([&] { parts.notifications.JoinStoppers(); });
  parts.notifier.CloseGlobalEvents();
  parts.notifier.DropWakeUps();
  if (!parts.subscription_id.empty()) {
    step([&] { parts.services.bus.Unsubscribe(parts.subscription_id); });
    parts.subscription_id.clear();
  }
  step([&] {
    if (parts.display.Stop()) parts.notifier.DropStopEvent();
  });
  parts.session_datasets.SetOpen(false);
  for (const TVK::MonitorList::Entry& entry : ended) {
    step([&] { entry->JoinAndDelete(); });
    parts.monitors.Remove(entry);
  }
  parts.log.d(L"EventManager Stop");
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the public class takes its texts by value.
void EventManager::RunAndAddToList(std::wstring dataset_id) {
  parts_->reconciler.RunAndAddToList(dataset_id);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param)
void EventManager::StopAndRemoveFromList(std::wstring dataset_id) {
  parts_->reconciler.StopAndRemoveFromList(dataset_id);
}

void EventManager::LogDeviceContextData(bool log_it, DeviceContext& context, bool /*notify*/) {
  TVK::CallLogged(parts_->log, L"EventManager::LogDeviceContextData",
                  [&] { parts_->device_context.Log(log_it, context); });
}

int EventManager::DecideTVKVer(std::wstring version) {
  int answer = 2;
  TVK::CallLogged(parts_->log, L"EventManager::DecideTVKVer",
                  [&] { answer = parts_->identity.DecideTVKVer(std::move(version)); });
  return answer;
}

void EventManager::OnTelemetryScopeChanges() {
  TVK::CallLogged(parts_->log, L"EventManager::OnTelemetryScopeChanges",
                  [&] { parts_->notifications.OnTelemetryScopeChanges(); });
}

void EventManager::OnDeviceContextChanges() {
  TVK::CallLogged(parts_->log, L"EventManager::OnDeviceContextChanges",
                  [&] { parts_->notifications.OnDeviceContextChanges(); });
}

std::vector<std::wstring> EventManager::get_eventmonitor_list() const {
  return AskLogged(parts_->log, L"EventManager::get_eventmonitor_list", [&] {
    std::vector<std::wstring> names;
    for (const TVK::MonitorList::Entry& entry : parts_->monitors.Listed())
      names.emplace_back(entry->row().name);
    return names;
  });
}

bool EventManager::IsDevicePathChange() const {
  return parts_->device_context.IsDevicePathChange();
}

void EventManager::set_svrHandle(SERVICE_STATUS_HANDLE handle) {
  parts_->identity.Set(&Values::service_handle, handle);
}
SERVICE_STATUS_HANDLE EventManager::get_svrHandle() const {
  return parts_->identity.Get(&Values::service_handle);
}
TVK::DeviceIdAgent* EventManager::get_devidAgent() const {
  return parts_->identity.Get(&Values::device_id_agent);
}
void EventManager::set_devidAgent(TVK::DeviceIdAgent* agent) {
  parts_->identity.Set(&Values::device_id_agent, agent);
}
bool EventManager::get_NeedToLogDatasetContextOnChange() const {
  return parts_->identity.Get(&Values::need_to_log_dataset_context_on_change);
}
bool EventManager::set_NeedToLogDatasetContextOnChange(const bool& value) {
  parts_->identity.Set(&Values::need_to_log_dataset_context_on_change, value);
  return value;
}
bool EventManager::get_NoHashNetworkData() const {
  return parts_->identity.Get(&Values::no_hash_network_data);
}
bool EventManager::set_NoHashNetworkData(const bool& value) {
  parts_->identity.Set(&Values::no_hash_network_data, value);
  return value;
}
bool EventManager::get_FirstInvocation() const {
  return parts_->identity.Get(&Values::first_invocation);
}
void EventManager::set_FirstInvocation(bool value) {
  parts_->identity.Set(&Values::first_invocation, value);
}
std::wstring EventManager::get_DeviceId() const {
  return AskLogged(parts_->log, L"EventManager::get_DeviceId",
                   [&] { return parts_->identity.Get(&Values::device_id); });
}
std::wstring EventManager::get_LegacyDeviceId() const {
  return AskLogged(parts_->log, L"EventManager::get_LegacyDeviceId",
                   [&] { return parts_->identity.Get(&Values::legacy_device_id); });
}
std::wstring EventManager::get_Telemetry_Scope() const {
  return AskLogged(parts_->log, L"EventManager::get_Telemetry_Scope", [&] { return parts_->policy.scope(); });
}
void EventManager::set_Telemetry_Scope(const std::wstring& scope) {
  TVK::CallLogged(parts_->log, L"EventManager::set_Telemetry_Scope", [&] { parts_->policy.set_scope(scope); });
}
std::wstring EventManager::get_schema_ver() {
  return AskLogged(parts_->log, L"EventManager::get_schema_ver", [&] { return parts_->identity.get_schema_ver(); });
}
void EventManager::set_schema_ver(const std::wstring& version) {
  TVK::CallLogged(parts_->log, L"EventManager::set_schema_ver",
                  [&] { parts_->identity.Set(&Values::schema_ver, version); });
}
std::wstring EventManager::get_device_context_id() {
  return AskLogged(parts_->log, L"EventManager::get_device_context_id",
                   [&] { return parts_->identity.get_device_context_id(); });
}
void EventManager::set_device_context_id(const std::wstring& id) {
  TVK::CallLogged(parts_->log, L"EventManager::set_device_context_id",
                  [&] { parts_->identity.Set(&Values::device_context_id, id); });
}
