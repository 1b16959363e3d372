// News from the bus, and the thread that acts on it.
#include <array>

#include "client/records/records.h"
#include "client/text/string.h"
#include "core/event_manager_state.h"

using namespace manager_names;  // NOLINT(google-build-using-namespace): the manager's own constants
using TVK::String;

void EventManager::OnNotification(TVKNotificationData& data) {
  if (data.isKVQNotification()) return;
  state_->log.d(L"%s Recieved internal notification %d %d", L"EventManager::OnNotification", data.getTopicId(),
                data.getEventState());
  if (data.getTopicId() != kPolicyTopic) return;
  if (data.getEventState() == kTelemetryPolicyChanged) OnTelemetryPolicyNotification(data);
  if (data.getEventState() == kTvkPolicyChanged) OnTvkPolicyNotification(data);
}

void EventManager::OnTelemetryPolicyNotification(TVKNotificationData& data) {
  constexpr wchar_t kThis[] = L"EventManager::OnNotification";
  State& state = *state_;
  state.log.d(L"%s On Recieving Telemetry policy Change Event: !: ", kThis);
  data.deserializePayloadForTvkPolicy(data.getPayload());
  state.log.d(
      L"%s On Deserializing payload values recieved On telemtery policy change: DevicePath Value : %s  "
      L"DeviceSubscriptionValue : %s isDevicePathChange: %d",
      kThis, data.device_path(), data.device_subscription(), data.is_device_path_change());
  state.RememberDevicePathChange(data);
  const platform::NamedEventResult opened = state.services.runtime.OpenNamedEvent(kTelemetryPolicyChangeEvent);
  if (opened.event != nullptr) {
    state.log.e(L"EventManager OnNotification SetEvent: \"%s\"", kTelemetryPolicyChangeEvent);
    opened.event->Set();
  }

  TelemetryPolicy policy;
  std::wstring old_scope;
  if (!state.TakePolicy(policy, old_scope)) {
    state.log.e(L"EventManager OnNotification GetTelemetryPolicy() return fail!");
    return;
  }
  set_NoHashNetworkData(policy.Setting(kNoHashNetworkDataSetting) == L"true");
  if (!StringHelper::caseInsesitiveEqual(old_scope, policy.telemetry_scope)) {
    state.log.d(L"EventManager OnNotification found telemetry_scope changes %s-->%s", old_scope,
                policy.telemetry_scope);
    const std::lock_guard lock(state.list_lock);
    for (const auto& entry : state.monitors) {
      state.log.d(L"EventManager RestartMonitor %s", entry.first->GetName());
      state.CallMonitor(kThis, *entry.first, [](EventMonitorBase& monitor) { monitor.RestartMonitor(); });
    }
  }
  if (get_devidAgent() == nullptr) {
    state.log.e(L"EventManager OnTelemetryScopeChanges serivice=null or deviceidagent=null!");
    return;
  }
  const auto wakers = state.CopyWakers();
  if (wakers.telemetry_scope == nullptr) return;
  const std::uint32_t error = wakers.telemetry_scope->Release(1);
  if (error != 0) state.log.e(L"EventManager OnNotification ReleaseSemphore error:%d", error);
}

void EventManager::OnTvkPolicyNotification(TVKNotificationData& data) {
  constexpr wchar_t kThis[] = L"EventManager::OnNotification";
  State& state = *state_;
  state.log.d(L"%s On Recieving TVK policy Change Event: !: ", kThis);
  data.deserializePayloadForTvkPolicy(data.getPayload());
  state.log.d(L"%s On Desrializing payload values recieved: DevicePath Value : %s  DeviceSubscriptionValue : %s", kThis,
              data.device_path(), data.device_subscription());
  state.RememberDevicePathChange(data);
  state.log.d(L"%s Sending event on TVK Policy Change: !: ", kThis);
  const auto wakers = state.CopyWakers();
  if (wakers.tvk_policy != nullptr) wakers.tvk_policy->Set();
}

void EventManager::State::RememberDevicePathChange(const TVKNotificationData& data) {
  if (!data.is_device_path_change()) return;
  const std::lock_guard lock(value_lock);
  device_path_change = true;
  ++device_path_news;
}

void EventManager::NotificationProcessorThread() {
  constexpr wchar_t kThis[] = L"EventManager::NotificationProcessorThread";
  State& state = *state_;
  state.log.d(L"%s Entry", kThis);
  const auto wakers = state.CopyWakers();
  std::vector<platform::Waitable*> objects = {wakers.stop.get(), wakers.tvk_policy.get(),
                                              wakers.device_context_change.get(), wakers.telemetry_scope.get()};
  if (state.services.region_change_event != nullptr) objects.push_back(state.services.region_change_event);
  bool running = true;
  while (running) {
    const platform::WaitCode signalled = state.services.runtime.WaitAny(objects, platform::kForever);
    state.log.d(L"%s Triggered(initflag=%d, signalled=%lu)", kThis, state.initialized.load(), signalled);
    try {
      switch (signalled) {
        case 0:
          running = false;
          break;
        case 2:
          state.log.d(L"%s Trigger OnDeviceContextChanges Method", kThis);
          OnDeviceContextChanges();
          break;
        case 1:
        case 3:
        case 4:
          running = state.initialized;
          if (running) RunHandler(signalled);
          break;
        default:
          // To wait again at once would fail again, and take a processor for it.
          state.log.e(L"%s: the wait failed", kThis);
          state.services.runtime.Wait(*wakers.stop, std::chrono::seconds(1));
      }
    } catch (...) {
      state.log.e(L"%s encount exceptions", kThis);
    }
  }
  state.log.d(L"%s End", kThis);
}

void EventManager::RunHandler(unsigned long index) {
  constexpr wchar_t kThis[] = L"EventManager::NotificationProcessorThread";
  State& state = *state_;
  if (index == 1) {
    state.log.d(L"%s Trigger OnTvkPolicyChanges Method", kThis);
    OnTvkPolicyChanges();
  } else if (index == 3) {
    state.log.d(L"%s Trigger OnTelemetryScopeChanges Method", kThis);
    OnTelemetryScopeChanges();
  } else {
    state.log.d(L"%s Trigger OnRegion Changed", kThis);
    state.log.d(L"%s Log Device Context on Region Change", kThis);
    DeviceContext context;
    LogDeviceContextData(true, context, true);
  }
}

void EventManager::WaitForEventMonitorThreads() {
  constexpr wchar_t kThis[] = L"EventManager::WaitForEventMonitorThreads";
  State& state = *state_;
  for (const auto& [monitor, thread] : state.CopyList()) {
    const Dataset* dataset = state.services.datasets.FindByName(monitor->GetName());
    if (dataset != nullptr && dataset->row.rule == DatasetRule::kAlways) {
      state.log.d(L"%s it is null data set! %s: ", kThis, monitor->GetName());
      continue;
    }
    // Only a thread whose main routine has returned can be joined without waiting; a monitor that keeps its thread for
    // its notifications would hold this one for ever.
    if (thread == nullptr || !thread->joinable() || !state.HasReturned(monitor)) continue;
    try {
      state.services.runtime.Join(*thread);
      state.log.d(L"%s join the thread! %s: ", kThis, monitor->GetName());
    } catch (const std::system_error&) {
      state.log.e(L"%s: Error joining event monitor!", kThis);
    }
  }
}

void EventManager::OnTvkPolicyChanges() {
  constexpr wchar_t kThis[] = L"EventManager::OnTvkPolicyChanges";
  State& state = *state_;
  state.log.d(L"%s Enter:", kThis);
  TelemetryPolicy policy;
  if (!state.ReadPolicy(policy)) {
    state.log.e(L"%s : GetTelemetryPolicy() return fail!", kThis);
    return;
  }
  state.log.d(L"%s Finish the other threads if running!", kThis);
  WaitForEventMonitorThreads();
  state.log.d(L"%s Stop the datasets which are not present in updated Config!", kThis);
  StopDisabledDatasets(policy.datasets, get_Telemetry_Scope());
  DeviceContext context;
  LogDeviceContextData(true, context, true);
  state.log.d(L"%s Exit:", kThis);
}

void EventManager::OnTelemetryScopeChanges() {
  constexpr wchar_t kThis[] = L"EventManager::OnTelemetryScopeChanges";
  State& state = *state_;
  state.log.d(L"%s : Entry", kThis);
  try {
    TelemetryPolicy policy;
    if (!state.ReadPolicy(policy)) {
      state.log.e(L"%s : GetTelemetryPolicy() return fail!", kThis);
    } else {
      state.log.d(L"%s : Stopping the datasets!", kThis);
      StopDisabledDatasets(policy.datasets, get_Telemetry_Scope());
      RereadSettings();
      StartMissingDatasets(policy);
    }
  } catch (...) {
    state.log.e(L"%s : encount exceptions", kThis);
  }
  state.log.d(L"%s : End", kThis);
}

void EventManager::RereadSettings() {
  for (const auto& entry : state_->CopyList()) {
    if (!state_->initialized) return;  // Stop waits for this thread
    state_->CallMonitor(L"EventManager::RereadSettings", *entry.first,
                        [](EventMonitorBase& monitor) { monitor.ReadAndUpdateDatasetSettings(); });
  }
}

void EventManager::StartMissingDatasets(TelemetryPolicy& policy) {
  State& state = *state_;
  const EligibilityFilter filter(state.services.machine_information.traits());
  if (!filter.IsApplicable(policy.applicability)) return;
  OrderDatasets(policy.datasets);
  for (const DataSet& dataset : policy.datasets) {
    if (!state.initialized) return;
    const Dataset* known = state.services.datasets.FindForPolicy(dataset.id, dataset.name);
    if (known == nullptr || !dataset.enabled || !filter.IsApplicable(dataset.applicability)) continue;
    const bool runs = known->row.rule == DatasetRule::kUserProcess
                          ? state.services.user_process_agent.UserProcessRuns()
                          : SearchMonitorList(dataset.name) || state.IsStopping(dataset.name);
    // The policy may be newer than the scope in force; a consent that it withdraws counts already.
    const std::wstring scopes(known->row.scopes);
    const bool consented = String::CaseInsesitiveFind(scopes, get_Telemetry_Scope()) &&
                           String::CaseInsesitiveFind(scopes, policy.telemetry_scope);
    if (!runs && consented) RunAndAddToList(dataset.id);
  }
}

void EventManager::OnDeviceContextChanges() {
  constexpr wchar_t kThis[] = L"EventManager::OnDeviceContextChanges";
  State& state = *state_;
  state.log.d(L"%s Entry", kThis);
  bool new_device = false;
  {
    const std::lock_guard lock(state.value_lock);
    new_device = std::exchange(state.device_path_change, false);
    state.context_change_pending = false;
  }
  const auto tell = [&](EventMonitorBase& monitor) { monitor.OnDeviceContextChanges(new_device); };
  if (state.application_events != nullptr) state.CallMonitor(kThis, *state.application_events, tell);
  TelemetryPolicy policy;
  if (!state.ReadPolicy(policy)) {
    state.log.e(L"%s : GetTelemetryPolicy() return fail!", kThis);
  } else {
    for (const auto& entry : state.CopyList()) {
      if (!state.initialized) break;  // Stop waits for this thread
      // A monitor that a newer policy does not let run has only not been stopped yet: it writes nothing more.
      const Dataset* dataset = state.services.datasets.FindByName(entry.first->GetName());
      if (dataset != nullptr && State::MayRun(dataset->row, policy.datasets, get_Telemetry_Scope())) {
        state.CallMonitor(kThis, *entry.first, tell);
      }
    }
  }
  state.log.d(L"%s Exit", kThis);
}

bool EventManager::ValidateDisplayEventWithNewPolicy() {
  TelemetryPolicy policy;
  if (!state_->ReadPolicy(policy)) {
    state_->log.e(L"%s : GetTelemetryPolicy() return fail!", L"EventManager::ValidateDisplayEventWithNewPolicy");
    return false;
  }
  const Dataset* display = state_->services.datasets.FindByName(kDisplayDataset);
  DataSet dataset;
  if (display == nullptr || !SearchUpdatedConfig(std::wstring(display->row.id), policy.datasets, dataset)) return false;
  const EligibilityFilter filter(state_->services.machine_information.traits());
  return dataset.enabled && filter.IsApplicable(dataset.applicability) &&
         String::CaseInsesitiveFind(std::wstring(display->row.scopes), get_Telemetry_Scope());
}
