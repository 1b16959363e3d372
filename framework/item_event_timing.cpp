// When an item event is due, and since when.
#include <cmath>

#include "client/text/record_time.h"
#include "client/text/string.h"
#include "framework/event_monitor_base.h"

using TVK::String;

namespace {

/// How many of the store's records getLastItemEventTimeStamp looks at.
constexpr std::int64_t kFirstBatch = 1000;

}  // namespace

// NOLINTNEXTLINE(performance-unnecessary-value-param): the monitors' common class takes its texts by value.
std::int64_t EventMonitorBase::GetTimeStamp(std::string time) {
  return TVK::ParseRecordTime(time, services_->runtime.clock());
}

std::int64_t EventMonitorBase::TimeOfRecord(const std::wstring& time) {
  const std::int64_t stamp = GetTimeStamp(String::UTF16ToUTF8(time));
  return stamp < 0 ? services_->runtime.clock().NowSeconds() : stamp;
}

bool EventMonitorBase::getLastItemEventTimeStamp(const std::wstring& dataset_id, const std::wstring& item_id,
                                                 std::int64_t& time) {
  std::vector<ItemEvent> events;
  services_->store.ReadItemEvents(dataset_id, 0, kFirstBatch, events);
  bool found = false;
  for (const ItemEvent& event : events) {
    if (event.item_id() == item_id) {
      time = GetTimeStamp(String::UTF16ToUTF8(event.item_time()));
      found = true;
      break;
    }
  }
  if (time < 0) time = services_->runtime.clock().NowSeconds();
  return found;
}

bool EventMonitorBase::getLastItemEventTimeStampWithFallback(const std::wstring& dataset_id,
                                                             const std::wstring& item_id, std::int64_t& time) {
  constexpr wchar_t kThis[] = L"EventMonitorBase::getLastItemEventTimeStampWithFallback";
  time = 0;
  ItemEvent event;
  if (services_->store.GetLastItemEventWithItemId(dataset_id, item_id, event) == 0) {
    log_.d(L"%s: ReadUsagePerInterval item found for dataset_id = %s", kThis, dataset_id);
    time = TimeOfRecord(event.item_time());
    return true;
  }
  if (services_->store.GetLastItemEventWithItemId(dataset_id, DeviceInitItemId, event) == 0) {
    log_.d(L"%s: DeviceInit item found for dataset_id = %s", kThis, dataset_id);
    time = TimeOfRecord(event.item_time());
    return true;
  }
  DatasetContext dataset_context;
  if (services_->store.GetLastDatasetContext(dataset_id, dataset_context) == 0) {
    log_.d(L"%s: DataSetContext found for dataset_id = %s", kThis, dataset_id);
    time = TimeOfRecord(dataset_context.dataset_context_datetime());
    return true;
  }
  DeviceContext device_context;
  if (services_->store.GetLastDeviceContext(device_context) == 0) {
    log_.d(L"%s: DeviceContext found for dataset_id = %s", kThis, dataset_id);
    time = TimeOfRecord(device_context.device_context_datetime());
    return true;
  }
  return false;
}

bool EventMonitorBase::isItemEventElapsed(const std::int64_t& last, const int& interval_seconds) {
  return static_cast<double>(services_->runtime.clock().NowSeconds() - last) >= interval_seconds;
}

bool EventMonitorBase::isItemEventElapsed(const std::int64_t& last, const int& interval_seconds,
                                          std::uint64_t& remaining_seconds) {
  const auto passed = static_cast<double>(services_->runtime.clock().NowSeconds() - last);
  if (std::fabs(passed) >= interval_seconds) {
    remaining_seconds = 0;
    return true;
  }
  remaining_seconds = static_cast<std::uint64_t>(interval_seconds - passed);
  return false;
}

bool EventMonitorBase::WaitForDatasetContextLog(platform::Waitable* const* handles, std::uint32_t timeout_ms,
                                                const std::wstring& dataset_name) {
  constexpr wchar_t kThis[] = L"EventMonitorBase::WaitForDatasetContextLog";
  log_.d(L"%s: Entry for dataset %s", kThis, dataset_name);
  if (handles[0] == nullptr || handles[1] == nullptr) {
    log_.e(L"%s: One or more of the handles is NULL for dataset %s", kThis, dataset_name);
  } else {
    const platform::WaitCode code = services_->runtime.WaitAny({handles, 2}, std::chrono::milliseconds(timeout_ms));
    log_.d(L"%s: return code is %ul for dataset %s", kThis, code, dataset_name);
    if (code == platform::kWaitTimeout) {
      log_.d(L"%s: DatasetContext not logged. Return code %ul for dataset %s", kThis, code, dataset_name);
    } else if (code == 0) {
      log_.d(L"%s: Service Stop received", kThis);
    } else {
      log_.d(L"%s: Datasetcontext found %s", kThis, dataset_name);
      log_.d(L"%s: Exit. Dataset %s", kThis, dataset_name);
      return false;
    }
  }
  log_.d(L"%s: Exit. Dataset %s", kThis, dataset_name);
  return true;
}
