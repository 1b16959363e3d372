// The event manager's identity values and flags.
#include "core/event_manager_state.h"

void EventManager::set_svrHandle(SERVICE_STATUS_HANDLE handle) {
  const std::lock_guard lock(state_->value_lock);
  state_->service_handle = handle;
}
SERVICE_STATUS_HANDLE EventManager::get_svrHandle() const {
  const std::lock_guard lock(state_->value_lock);
  return state_->service_handle;
}
TVK::DeviceIdAgent* EventManager::get_devidAgent() const {
  const std::lock_guard lock(state_->value_lock);
  return state_->device_id_agent;
}
void EventManager::set_devidAgent(TVK::DeviceIdAgent* agent) {
  const std::lock_guard lock(state_->value_lock);
  state_->device_id_agent = agent;
}
bool EventManager::get_NeedToLogDatasetContextOnChange() const {
  const std::lock_guard lock(state_->value_lock);
  return state_->need_to_log_dataset_context_on_change;
}
bool EventManager::set_NeedToLogDatasetContextOnChange(const bool& value) {
  const std::lock_guard lock(state_->value_lock);
  return state_->need_to_log_dataset_context_on_change = value;
}
bool EventManager::get_NoHashNetworkData() const {
  const std::lock_guard lock(state_->value_lock);
  return state_->no_hash_network_data;
}
bool EventManager::set_NoHashNetworkData(const bool& value) {
  const std::lock_guard lock(state_->value_lock);
  return state_->no_hash_network_data = value;
}
bool EventManager::get_FirstInvocation() const {
  const std::lock_guard lock(state_->value_lock);
  return state_->first_invocation;
}
void EventManager::set_FirstInvocation(bool value) {
  const std::lock_guard lock(state_->value_lock);
  state_->first_invocation = value;
}
std::wstring EventManager::get_DeviceId() const {
  const std::lock_guard lock(state_->value_lock);
  return state_->device_id;
}
std::wstring EventManager::get_LegacyDeviceId() const {
  const std::lock_guard lock(state_->value_lock);
  return state_->legacy_device_id;
}
std::wstring EventManager::get_Telemetry_Scope() const {
  const std::lock_guard lock(state_->value_lock);
  return state_->telemetry_scope;
}
void EventManager::set_Telemetry_Scope(const std::wstring& scope) {
  const std::lock_guard lock(state_->value_lock);
  state_->telemetry_scope = scope;
}
std::wstring EventManager::get_schema_ver() {
  const std::lock_guard lock(state_->value_lock);
  return state_->schema_ver;
}
void EventManager::set_schema_ver(const std::wstring& version) {
  const std::lock_guard lock(state_->value_lock);
  state_->schema_ver = version;
}
std::wstring EventManager::get_device_context_id() {
  const std::lock_guard lock(state_->value_lock);
  return state_->device_context_id;
}
void EventManager::set_device_context_id(const std::wstring& id) {
  const std::lock_guard lock(state_->value_lock);
  state_->device_context_id = id;
}
const std::list<std::pair<EventMonitorBase*, std::thread*>>& EventManager::get_eventmonitor_list() const {
  return state_->monitors;
}
bool EventManager::IsDevicePathChange() const {
  const std::lock_guard lock(state_->value_lock);
  return state_->device_path_change;
}
