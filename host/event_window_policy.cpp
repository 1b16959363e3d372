// How the event window follows the policy.
#include <array>
#include <exception>
#include <utility>

#include "client/text/string.h"
#include "core/notifier.h"
#include "host/event_window.h"

using TVK::String;

namespace {

// Of what is opened, and of a change of the policy that cannot be taken in.
constexpr int kTries = 10;
constexpr std::chrono::milliseconds kRetry(500);

}  // namespace

std::unique_ptr<platform::Event> EventWindow::OpenPolicyEvent(const wchar_t* name) {
  for (int i = 0; i < kTries && policy_thread_running_; ++i) {
    if (i != 0) Pause(kRetry);
    platform::NamedEventResult opened = parts_.desktop.OpenSessionEvent(name, platform::EventRights::kWait);
    if (opened.event != nullptr) return std::move(opened.event);
  }
  return nullptr;
}

void EventWindow::ConfigPolicyMonitorThread(EventWindow* pEventWindow) {
  const TVK::Log& log = ModuleLog();
  log.d(L" %s Enter: ", L"EventWindow::ConfigPolicyMonitorThread");
  log.d(L"EventWindow ConfigPolicyMonitorThread thread start...");
  if (pEventWindow == nullptr) {
    log.e(L"EventWindow ConfigPolicyMonitorThread: pEventWindow is NULL! thread exit!");
    return;
  }
  if (pEventWindow->_hStopEvent == nullptr) {
    log.e(L"EventWindow ConfigPolicyMonitorThread: _hStopEvent is NULL! thread exit!");
    return;
  }
  const auto telemetry_policy = pEventWindow->OpenPolicyEvent(TVK::kTelemetryPolicyChangeEvent);
  if (telemetry_policy == nullptr) {
    log.e(L"EventWindow ConfigPolicyMonitorThread: hTelemetryPolicyChangeEvent is NULL! thread exit!");
    return;
  }
  const auto tvk_policy = pEventWindow->OpenPolicyEvent(TVK::kTvkPolicyChangeEvent);
  if (tvk_policy == nullptr) {
    log.e(L"EventWindow ConfigPolicyMonitorThread: hTvkPolicyChangeEvent is NULL! thread exit!");
    return;
  }
  const auto device_path = pEventWindow->OpenPolicyEvent(TVK::kDevicePathChangeEvent);
  if (device_path == nullptr) {
    log.e(L"EventWindow ConfigPolicyMonitorThread: hDevicePathChangeEvent is NULL! thread exit!");
    return;
  }
  pEventWindow->FollowPolicyEvents(*tvk_policy, *device_path, *telemetry_policy);
}

void EventWindow::FollowPolicyEvents(platform::Event& tvk_policy, platform::Event& device_path,
                                     platform::Event& telemetry_policy) {
  constexpr wchar_t kThis[] = L"EventWindow::ConfigPolicyMonitorThread";
  const std::array<platform::Waitable*, 4> objects = {_hStopEvent.get(), &tvk_policy, &device_path, &telemetry_policy};
  int tries_left = 0;  // of the last change
  while (policy_thread_running_) {
    const platform::WaitCode code = parts_.runtime.WaitAny(objects, tries_left > 0 ? kRetry : platform::kForever);
    try {
      switch (code) {
        case 0:
          log_.d(L"EventWindow ConfigPolicyMonitorThread thread exit.");
          return;
        case 1:
          log_.d(L"%s TVK policy change event occurs.", kThis);
          OnDeviceContextChange(this);
          break;
        case 2:
          log_.d(L"%s TVK device path change event occurs", kThis);
          OnDevicePathChange(this);
          break;
        case 3:
          tries_left = kTries;
          [[fallthrough]];
        case platform::kWaitTimeout:
          --tries_left;  // before what may throw
          if (OnTelemetryPolicyChange(this)) tries_left = 0;
          break;
        default:
          log_.d(L"EventWindow ConfigPolicyMonitorThread WaitForMultipleObjects() return fail! error: 0x%x", code);
          Pause(kRetry);  // a wait that fails at once must not keep a processor busy
      }
    } catch (const std::exception& failure) {
      log_.e(L"%s: Exception:, %s", kThis, String::UTF8ToUTF16(failure.what()));
    } catch (...) {
      log_.e(L"%s: Exception:, %s", kThis, L"unknown exception");
    }
  }
  log_.d(L"EventWindow ConfigPolicyMonitorThread exit.");
}

void EventWindow::OnDeviceContextChange(EventWindow* pEventWindow) {
  constexpr wchar_t kThis[] = L"EventWindow::OnDeviceContextChange";
  const TVK::Log& log = ModuleLog();
  log.d(L"%s Enter", kThis);
  if (pEventWindow == nullptr) {
    log.e(L"%s Null pointer", kThis);
    return;
  }
  const bool enabled = pEventWindow->IsDisplayEnabled();
  {
    const std::lock_guard lock(pEventWindow->mutex_);
    if (enabled && pEventWindow->_displayUserAgent != nullptr) {
      log.d(L"%s LogDatasetContext is called on tvk policy change", kThis);
      pEventWindow->_displayUserAgent->LogDatasetContext(true);
    }
  }
  log.d(L"%s Exit", kThis);
}

void EventWindow::OnDevicePathChange(EventWindow* pEventWindow) {
  constexpr wchar_t kThis[] = L"EventWindow::OnDevicePathChange";
  const TVK::Log& log = ModuleLog();
  log.d(L"%s Enter", kThis);
  if (pEventWindow == nullptr) {
    log.e(L"%s Null pointer", kThis);
    return;
  }
  {
    const std::lock_guard lock(pEventWindow->mutex_);
    if (pEventWindow->_displayUserAgent != nullptr) {
      log.d(L"%s LogDevInitEvent is called on device path change", kThis);
      pEventWindow->_displayUserAgent->LogDevInitEvent();
    }
  }
  log.d(L"%s Exit", kThis);
}

EventWindow::PolicyInForce EventWindow::Interpret(const TelemetryPolicy& policy) const {
  return {TVK::Normalise(policy, datasets_), parts_.device()};
}

bool EventWindow::Runs(const TVK::DatasetRow& row, const PolicyInForce& in_force) {
  return TVK::Decide(row, in_force.policy.SearchUpdatedConfig(row.id), in_force.policy, in_force.policy.scope,
                     in_force.device, TVK::DecisionMoment::kStart)
      .runs();
}

bool EventWindow::IsDisplayEnabled() const {
  TelemetryPolicy policy;
  return parts_.config_policy_agent != nullptr && parts_.config_policy_agent->GetTelemetryPolicy(policy) &&
         Runs(TVK::kDisplayRow, Interpret(policy));
}

bool EventWindow::OnTelemetryPolicyChange(EventWindow* pEventWindow) {
  constexpr wchar_t kThis[] = L"EventWindow::OnTelemetryPolicyChange";
  const TVK::Log& log = ModuleLog();
  if (pEventWindow == nullptr) {
    log.e(L"EventWindow OnTelemetryPolicyChange: pEventWindow is NULL!");
    return false;
  }
  IConfigAgent* const agent = pEventWindow->parts_.config_policy_agent;
  if (agent == nullptr) {
    log.e(L"EventWindow OnTelemetryPolicyChange: _configPolicyAgent is NULL!");
    return false;
  }
  TelemetryPolicy policy;
  if (!agent->GetTelemetryPolicy(policy)) {
    log.e(L"EventWindow OnTelemetryPolicyChange GetTelemetryPolicy() return fail!");
    return false;
  }
  log.d(L"EventWindow OnTelemetryPolicyChange Get TelemetryPolicy successfully.");
  bool display = false;
  bool pen = false;
  try {
    const PolicyInForce in_force = pEventWindow->Interpret(policy);
    if (!in_force.device.IsApplicable(policy.applicability)) {
      log.d(L"TelemetryPolicy not Applicable");
      pEventWindow->RestPen(true);
      return false;
    }
    try {
      display = Runs(TVK::kDisplayRow, in_force);
      pen = Runs(TVK::kPenRow, in_force);
    } catch (...) {
      log.e(L"%s dataset find failed with exception", kThis);
    }
  } catch (...) {
    log.e(L"%s apply policy failed with exception", kThis);
  }
  if (!pEventWindow->SwitchDisplay(display)) {
    log.e(L"EventWindow OnTelemetryPolicyChange _displayUserAgent is NULL!");
    return false;
  }
  pEventWindow->SwitchPen(pen);
  pEventWindow->RestPen(false);
  return true;
}

void EventWindow::RestPen(bool rests) {
  if (PenEventMonitor* const pen = pen_monitor_) pen->Rest(rests);
}

bool EventWindow::SwitchDisplay(bool enabled) {
  std::unique_ptr<DisplayUserAgent> ended;
  DisplayUserAgent* made = nullptr;
  void* window = nullptr;
  {
    const std::lock_guard lock(mutex_);
    if (!enabled) {
      ended = std::move(_displayUserAgent);
      return true;
    }
    if (_displayUserAgent != nullptr) return true;
    _displayUserAgent = parts_.make_display();
    if (_displayUserAgent == nullptr) return false;
    made = _displayUserAgent.get();
    window = window_;
  }
  // One that comes later finds the window there, and nobody else will describe its displays.
  if (window == nullptr) return true;
  made->LogDatasetContext(true);
  made->LogDevInitEvent();
  // Without the lock: the system may tell the window the present values before this returns, and the window's thread
  // takes it for them. Only this thread ends what it made.
  made->RegisterNotifications(window);
  return true;
}

void EventWindow::SwitchPen(bool enabled) {
  PenEventMonitor* const present = pen_monitor_;
  if (enabled == (present != nullptr)) return;
  if (!enabled) {
    pen_monitor_ = nullptr;
    present->Unregister();
    return;
  }
  PenEventMonitor* const pen = parts_.pen_monitor();
  pen_monitor_ = pen;
  void* window = nullptr;
  {
    const std::lock_guard lock(mutex_);
    window = window_;
  }
  if (window != nullptr) pen->Register(window);
}
