#include "core/notifications.h"

#include <system_error>

#include "client/log/guarded_thread.h"
#include "client/text/string.h"
#include "core/second_tries.h"

namespace TVK {

Notifications::Notifications(const ManagerParts& parts, Reconciler& reconciler,
                             std::function<void()> log_device_context, ApplicationEvents& application_events,
                             DatasetLog& dataset_log)
    : parts_(parts),
      reconciler_(reconciler),
      log_device_context_(std::move(log_device_context)),
      application_events_(application_events),
      dataset_log_(dataset_log) {}

void Notifications::Start() {
  try {
    thread_ = StartGuardedThread(parts_.services.runtime, parts_.log, "tvk-notify",
                                 [this] { NotificationProcessorThread(); });
  } catch (const std::system_error& failure) {
    parts_.log.e(L"EventManager Initialize _thread_telemetry failed!");
    parts_.Remark(std::string("changes of the policy are not followed: ") + failure.what());
  }
}

void Notifications::End() {
  if (!thread_.joinable()) return;
  if (const auto stop = parts_.notifier.wake_ups().stop; stop != nullptr) stop->Set();
  parts_.services.runtime.Join(thread_);
}

void Notifications::JoinStoppers() {
  const std::lock_guard no_handler(handler_mutex_);
  reconciler_.JoinStoppers();
}

void Notifications::OnNotification(TVKNotificationData& data) {
  if (data.isKVQNotification()) return;
  parts_.log.d(L"%s Recieved internal notification %d %d", L"EventManager::OnNotification", data.getTopicId(),
               data.getEventState());
  if (data.getTopicId() != kPolicyTopic) return;
  if (data.getEventState() == kTelemetryPolicyChanged) OnTelemetryPolicyNotification(data);
  if (data.getEventState() == kTvkPolicyChanged) OnTvkPolicyNotification(data);
}

void Notifications::OnTelemetryPolicyNotification(TVKNotificationData& data) {
  constexpr wchar_t kThis[] = L"EventManager::OnNotification";
  parts_.log.d(L"%s On Recieving Telemetry policy Change Event: !: ", kThis);
  data.deserializePayloadForTvkPolicy(data.getPayload());
  parts_.log.d(
      L"%s On Deserializing payload values recieved On telemtery policy change: DevicePath Value : %s  "
      L"DeviceSubscriptionValue : %s isDevicePathChange: %d",
      kThis, data.device_path(), data.device_subscription(), data.is_device_path_change());
  if (data.is_device_path_change()) parts_.device_context.RememberDevicePathChange();
  parts_.notifier.SignalUserAgent(kTelemetryPolicyChangeEvent, [&] {
    parts_.log.e(L"EventManager OnNotification SetEvent: \"%s\"", kTelemetryPolicyChangeEvent);
  });

  std::wstring old_scope;
  const PolicyView::Policy policy = parts_.policy.ReadWithScope(old_scope);
  if (policy == nullptr) {
    parts_.log.e(L"EventManager OnNotification GetTelemetryPolicy() return fail!");
    return;
  }
  parts_.identity.Set(&IdentityValues::Values::no_hash_network_data, policy->no_hash_network_data);
  if (!StringHelper::caseInsesitiveEqual(old_scope, policy->scope)) {
    parts_.log.d(L"EventManager OnNotification found telemetry_scope changes %s-->%s", old_scope, policy->scope);
    for (const MonitorList::Entry& entry : parts_.monitors.Listed()) {
      parts_.log.d(L"EventManager RestartMonitor %s", entry->row().name);
      entry->Call(kThis, [](EventMonitorBase& monitor) { monitor.RestartMonitor(); });
    }
  }
  if (parts_.identity.Get(&IdentityValues::Values::device_id_agent) == nullptr) {
    parts_.log.e(L"EventManager OnTelemetryScopeChanges serivice=null or deviceidagent=null!");
    return;
  }
  const auto wake_up = parts_.notifier.wake_ups().telemetry_scope;
  if (wake_up == nullptr) return;
  const std::uint32_t error = wake_up->Release(1);
  if (error != 0) parts_.log.e(L"EventManager OnNotification ReleaseSemphore error:%d", error);
}

void Notifications::OnTvkPolicyNotification(TVKNotificationData& data) {
  constexpr wchar_t kThis[] = L"EventManager::OnNotification";
  parts_.log.d(L"%s On Recieving TVK policy Change Event: !: ", kThis);
  data.deserializePayloadForTvkPolicy(data.getPayload());
  parts_.log.d(L"%s On Desrializing payload values recieved: DevicePath Value : %s  DeviceSubscriptionValue : %s",
               kThis, data.device_path(), data.device_subscription());
  if (data.is_device_path_change()) parts_.device_context.RememberDevicePathChange();
  parts_.log.d(L"%s Sending event on TVK Policy Change: !: ", kThis);
  const auto wake_up = parts_.notifier.wake_ups().tvk_policy;
  if (wake_up != nullptr) wake_up->Set();
}

void Notifications::NotificationProcessorThread() {
  constexpr wchar_t kThis[] = L"EventManager::NotificationProcessorThread";
  parts_.log.d(L"%s Entry", kThis);
  const Notifier::WakeUps wake_ups = parts_.notifier.wake_ups();
  platform::Waitable* const region_change = parts_.services.region_change_event;
  platform::Waitable* const objects[] = {wake_ups.stop.get(),
                                         wake_ups.tvk_policy.get(),
                                         wake_ups.device_context_change.get(),
                                         wake_ups.telemetry_scope.get(),
                                         wake_ups.shortage.get(),
                                         region_change};
  const std::span watched(objects, region_change == nullptr ? 5 : 6);
  const platform::Clock& clock = parts_.services.runtime.clock();
  SecondTries second_tries;
  bool running = true;
  while (running) {
    try {
      const platform::WaitCode signalled = parts_.services.runtime.WaitAny(watched, second_tries.Pause(clock.Steady()));
      parts_.log.d(L"%s Triggered(initflag=%d, signalled=%lu)", kThis, parts_.initialized.load(), signalled);
      switch (signalled) {
        case 0:
          running = false;
          break;
        case 2:
          parts_.log.d(L"%s Trigger OnDeviceContextChanges Method", kThis);
          OnDeviceContextChanges();
          break;
        case 1:
        case 3:
        case 5:
          running = parts_.initialized;
          if (running) RunHandler(signalled);
          break;
        case 4:
          second_tries.Want(clock.Steady());
          break;
        case platform::kWaitTimeout:
          second_tries.Begin(clock.Steady());
          TryAgain();
          break;
        default:
          parts_.log.e(L"%s: the wait failed", kThis);
          running = !EndsWithin(*wake_ups.stop, std::chrono::seconds(1));
      }
    } catch (...) {
      parts_.log.e(L"%s encount exceptions", kThis);
      running = !EndsWithin(*wake_ups.stop, std::chrono::seconds(1));
    }
  }
  parts_.log.d(L"%s End", kThis);
}

// To wait again at once would fail again, and take a processor for it.
bool Notifications::EndsWithin(platform::Event& stop, std::chrono::seconds pause) const {
  bool ends = false;
  CallLogged(parts_.log, L"EventManager::NotificationProcessorThread",
             [&] { ends = parts_.services.runtime.Wait(stop, pause) == 0; });
  return ends;
}

void Notifications::TryAgain() {
  const std::lock_guard one_at_a_time(handler_mutex_);
  if (parts_.policy.Read() == nullptr) {
    parts_.notifier.TellShortage();
    return;
  }
  reconciler_.TryAgain();
  dataset_log_.Tell();
}

void Notifications::RunHandler(platform::WaitCode index) {
  constexpr wchar_t kThis[] = L"EventManager::NotificationProcessorThread";
  if (index == 1) {
    parts_.log.d(L"%s Trigger OnTvkPolicyChanges Method", kThis);
    OnTvkPolicyChanges();
  } else if (index == 3) {
    parts_.log.d(L"%s Trigger OnTelemetryScopeChanges Method", kThis);
    OnTelemetryScopeChanges();
  } else {
    parts_.log.d(L"%s Trigger OnRegion Changed", kThis);
    parts_.log.d(L"%s Log Device Context on Region Change", kThis);
    const std::lock_guard one_at_a_time(handler_mutex_);
    log_device_context_();
  }
}

void Notifications::OnTvkPolicyChanges() {
  constexpr wchar_t kThis[] = L"EventManager::OnTvkPolicyChanges";
  const std::lock_guard one_at_a_time(handler_mutex_);
  parts_.log.d(L"%s Enter:", kThis);
  if (parts_.policy.Read() == nullptr) {
    parts_.log.e(L"%s : GetTelemetryPolicy() return fail!", kThis);
    return;
  }
  parts_.log.d(L"%s Finish the other threads if running!", kThis);
  reconciler_.WaitForEventMonitorThreads();
  parts_.log.d(L"%s Stop the datasets which are not present in updated Config!", kThis);
  reconciler_.StopDisabledDatasets();
  log_device_context_();
  dataset_log_.Tell();
  parts_.log.d(L"%s Exit:", kThis);
}

void Notifications::OnTelemetryScopeChanges() {
  constexpr wchar_t kThis[] = L"EventManager::OnTelemetryScopeChanges";
  const std::lock_guard one_at_a_time(handler_mutex_);
  parts_.log.d(L"%s : Entry", kThis);
  try {
    const PolicyView::Policy policy = parts_.policy.Read();
    if (policy == nullptr) {
      parts_.log.e(L"%s : GetTelemetryPolicy() return fail!", kThis);
    } else {
      parts_.log.d(L"%s : Stopping the datasets!", kThis);
      reconciler_.StopDisabledDatasets();
      reconciler_.RereadSettings();
      reconciler_.StartMissingDatasets(*policy);
    }
  } catch (...) {
    parts_.log.e(L"%s : encount exceptions", kThis);
  }
  dataset_log_.Tell();
  parts_.log.d(L"%s : End", kThis);
}

void Notifications::OnDeviceContextChanges() {
  constexpr wchar_t kThis[] = L"EventManager::OnDeviceContextChanges";
  const std::lock_guard one_at_a_time(handler_mutex_);
  parts_.log.d(L"%s Entry", kThis);
  const bool new_device = parts_.device_context.TakeDevicePathChange();
  const auto tell = [&](EventMonitorBase& monitor) { monitor.OnDeviceContextChanges(new_device); };
  const bool read = parts_.policy.Read() != nullptr;
  CallLogged(parts_.log, kThis, [&] { application_events_.OnDeviceContextChanges(new_device); });
  if (!read) {
    parts_.log.e(L"%s : GetTelemetryPolicy() return fail!", kThis);
  } else {
    for (const MonitorList::Entry& entry : parts_.monitors.Listed()) {
      if (!parts_.initialized) break;
      // A monitor that a newer policy does not let run has only not been stopped yet: it writes nothing more.
      if (parts_.policy.Decide(entry->row(), DecisionMoment::kRunning).runs()) entry->Call(kThis, tell);
    }
  }
  parts_.log.d(L"%s Exit", kThis);
}

}  // namespace TVK
