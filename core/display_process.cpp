#include "core/display_process.h"

#include <algorithm>

namespace TVK {

void DisplayProcess::Start(const wchar_t* caller, bool device_path_changed) {
  if (!agent_.Exists()) {
    if (!told_absent_.exchange(true)) log_.i(L"%s is collected in user sessions of Windows only", L"DisplayEvent");
    return;
  }
  const auto stop = notifier_.wake_ups().stop;
  if (stop == nullptr) {
    log_.e(L"%s: _hStopEvent is NULL", caller);
    return;
  }
  log_.d(L"%s: Starting the %s Process", caller, kUserAgentProgram);
  if (device_path_changed) {
    log_.e(L"%s:_devicePathForTelemetry is true", caller);
    notifier_.SignalUserAgent(kDevicePathChangeEvent, [&] {
      log_.d(L"%s Send Notification to User Agent on DevicePath Change with telemetry scope:", caller);
    });
  }
  agent_.SetDataSetEnable(true);
  if (agent_.StartUserProcess(*stop)) started_ = true;
}

bool DisplayProcess::ValidateDisplayEventWithNewPolicy() const {
  if (policy_.Read() == nullptr) {
    log_.e(L"%s : GetTelemetryPolicy() return fail!", L"EventManager::ValidateDisplayEventWithNewPolicy");
    return false;
  }
  const DecisionMoment moment = started_ ? DecisionMoment::kRunning : DecisionMoment::kStart;
  return dataset_ != nullptr && policy_.Decide(dataset_->row, moment).runs();
}

void DisplayProcess::StopIfExcluded() {
  if (!started_ || ValidateDisplayEventWithNewPolicy()) return;
  const bool another_goes_on = std::ranges::any_of(datasets_.datasets(), [&](const Dataset& dataset) {
    return dataset.row.rule == DatasetRule::kUserProcess &&
           policy_.Decide(dataset.row, DecisionMoment::kRunning).runs();
  });
  if (another_goes_on) return;
  log_.d(L"Stopping the Display event monitor if it already not stopped");
  agent_.SetDataSetEnable(false);
  agent_.StopUserProcess(1);
  started_ = false;
}

bool DisplayProcess::Stop() {
  if (!started_.exchange(false)) return false;
  log_.d(L"%s: Stopping the %s Process", L"EventManager::Stop", kUserAgentProgram);
  agent_.StopUserProcess(0);
  return true;
}

}  // namespace TVK
