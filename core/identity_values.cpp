#include "core/identity_values.h"

#include "client/text/string.h"
#include "framework/event_monitor_base.h"

using TVK::String;

namespace TVK {

IdentityValues::IdentityValues(const EventDataLogging& store, const TvkInfo& tvk_info, const DatasetTable& datasets,
                               SERVICE_STATUS_HANDLE handle)
    : store_(store), tvk_info_(tvk_info), datasets_(datasets) {
  values_.service_handle = handle;
}

void IdentityValues::SetDeviceContext(const std::wstring& id, const std::wstring& device_path) {
  const std::lock_guard lock(mutex_);
  values_.device_context_id = id;
  values_.device_path = device_path;
}

int IdentityValues::DecideTVKVer(std::wstring version) {
  const bool one_dataset = datasets_.FindById(version) != nullptr;
  ItemEvent last;
  const int error = one_dataset ? store_.GetLastItemEventWithItemId(version, EventMonitorBase::DeviceInitItemId, last)
                                : store_.GetLastItemEventOfAnyDataset(EventMonitorBase::DeviceInitItemId, last);
  return error != 0 ? kNone : OriginOf(last.device_context_id());
}

bool IdentityValues::IsOfThisClient(const std::wstring& device_context_id) {
  return OriginOf(device_context_id) == kSame;
}

IdentityValues::Origin IdentityValues::OriginOf(const std::wstring& device_context_id) {
  std::wstring current = String::ToUpper(tvk_info_.GetVersion());
  if (current.empty()) current = L"Unknow";
  DeviceContext context;
  if (store_.GetDeviceContext(device_context_id, context) != 0) return kNone;
  if (String::ToUpper(context.tvk_info().tvk_version()) != current) return kOtherVersion;
  return context.device_info().device_path() == Get(&Values::device_path) ? kSame : kOtherPath;
}

}  // namespace TVK
