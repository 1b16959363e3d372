#include "core/notifier.h"

#include "client/log/named_event.h"

using platform::EventReset;

namespace TVK {

Notifier::WakeUps Notifier::wake_ups() const {
  const std::lock_guard lock(mutex_);
  return wake_ups_;
}

void Notifier::MakeStopEvent() {
  const std::lock_guard lock(mutex_);
  wake_ups_.stop = runtime_.MakeEvent(EventReset::kManual);
}

void Notifier::MakePolicyWakeUps() {
  const std::lock_guard lock(mutex_);
  wake_ups_.telemetry_scope = runtime_.MakeSemaphore(0, 1);
  wake_ups_.tvk_policy = runtime_.MakeEvent(EventReset::kAuto);
  wake_ups_.shortage = runtime_.MakeEvent(EventReset::kAuto);
}

void Notifier::MakeDeviceContextWakeUp() {
  const std::lock_guard lock(mutex_);
  wake_ups_.device_context_change = runtime_.MakeEvent(EventReset::kAuto);
}

void Notifier::TellShortage() const {
  if (const auto shortage = wake_ups().shortage; shortage != nullptr) shortage->Set();
}

void Notifier::DropStopEvent() {
  const std::lock_guard lock(mutex_);
  wake_ups_.stop = nullptr;
}

void Notifier::DropWakeUps() {
  const std::lock_guard lock(mutex_);
  wake_ups_.tvk_policy = nullptr;
  wake_ups_.device_context_change = nullptr;
  wake_ups_.telemetry_scope = nullptr;
  wake_ups_.shortage = nullptr;
}

void Notifier::CreateGlobalEvents() {
  constexpr std::array kNames = {kTelemetryPolicyChangeEvent, kTvkPolicyChangeEvent, kDevicePathChangeEvent};
  // Where there is no user agent nobody of a session waits for them, and nobody but us is to signal them.
  const auto access = has_user_agent_ ? platform::EventAccess::kSessionUsers : platform::EventAccess::kServiceOnly;
  const std::lock_guard lock(mutex_);
  for (std::size_t i = 0; i < kNames.size(); ++i) {
    platform::NamedEventResult made = MakeNamedEvent(runtime_, log_, kNames[i], EventReset::kAuto, access);
    if (made.event == nullptr) {
      log_.e(L"EventManager Initialize CreateEvent \"%s\" return error %d!", kNames[i], made.error);
      return;
    }
    global_events_[i] = std::move(made.event);
  }
}

void Notifier::CloseGlobalEvents() {
  const std::lock_guard lock(mutex_);
  for (auto& event : global_events_)
    event = nullptr;
}

}  // namespace TVK
