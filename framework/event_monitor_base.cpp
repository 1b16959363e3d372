#include "framework/event_monitor_base.h"

#include <mutex>

#include "client/text/record_time.h"
#include "client/text/string.h"

namespace {

/// The telemetry scope of the whole client.
struct ScopeSlot {
  std::mutex mutex;  // guards telemetry_scope
  std::wstring telemetry_scope;
};

// Never destroyed: monitors ask until the process ends.
ScopeSlot& Scope() {
  static auto* const slot = new ScopeSlot;
  return *slot;
}

}  // namespace

const std::wstring EventMonitorBase::DeviceInitItemId = L"FC8782AC-7C54-4D27-9A21-E2B87D2A197B";

EventMonitorBase::EventMonitorBase(SERVICE_STATUS_HANDLE handle, bool device_path_changed,
                                   const TVK::MonitorServices& services)
    : service_status_handle_(handle), device_path_changed_(device_path_changed), services_(&services) {}

bool EventMonitorBase::UpdateThrottleParameters(std::map<std::wstring, std::wstring>& /*settings*/) {
  return false;
}

unsigned long EventMonitorBase::OnServiceControlHandle(unsigned long /*control*/, unsigned long /*event_type*/,
                                                       void* /*event_data*/, void* /*context*/) {
  return 0;
}

bool EventMonitorBase::IsNewDeviceInitNeeded(const std::wstring& version) {
  if (services_->manager.get_FirstInvocation()) return true;
  if (services_->manager.DecideTVKVer(version) != 0) return true;
  return device_path_changed_;
}

void EventMonitorBase::OnDeviceContextChanges(bool new_device) {
  LogDatasetContext(true);
  if (new_device) LogDevInitEvent();
}

void EventMonitorBase::SetTelemetryScope(std::wstring scope) {
  const std::lock_guard lock(Scope().mutex);
  Scope().telemetry_scope = std::move(scope);
}

bool EventMonitorBase::isTelemetryScopeNone() {
  const std::lock_guard lock(Scope().mutex);
  return StringHelper::caseInsesitiveEqual(Scope().telemetry_scope, L"none");
}

void EventMonitorBase::SanitizeItemData(std::map<std::wstring, std::wstring>& item_data, std::wstring value) {
  std::erase_if(item_data, [&](const auto& entry) { return entry.second.empty() || entry.second == value; });
}

bool EventMonitorBase::ReadDatasetSettingsFromConfigPolicy(const std::wstring& dataset_id,
                                                           std::map<std::wstring, std::wstring>& settings) {
  TelemetryPolicy policy;
  if (!services_->config.GetTelemetryPolicy(policy)) {
    log_.e(L"EventManager Initialize GetTelemetryPolicy() return fail!");
    return false;
  }
  const DataSet* const dataset = policy.FindSettings(dataset_id);
  if (dataset == nullptr) return false;
  settings = dataset->settings;
  return true;
}

bool EventMonitorBase::UpdateDatasetSettingsFromConfigPolicy(const std::wstring& dataset_id) {
  std::map<std::wstring, std::wstring> settings;
  if (!ReadDatasetSettingsFromConfigPolicy(dataset_id, settings)) return false;
  return UpdateThrottleParameters(settings);
}
