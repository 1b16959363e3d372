#include "monitors/system/memory_event_monitor.h"

#include <json/value.h>
#include <json/writer.h>

#include <algorithm>
#include <system_error>

#include "client/text/string.h"
#include "monitors/system/memory_settings.h"
#include "platform/memory.h"

using TVK::String;

namespace {

constexpr wchar_t kUsagePerInterval[] = L"MemoryUsagePerInterval";
constexpr wchar_t kContextUpdated[] = L"MemoryEvent context updated";
constexpr wchar_t kChange[] = L"Memory change";
constexpr std::uint32_t kReportedChangePercent = 5;
constexpr int kNoSmbiosTable = 2;  // SMBiosTool::Initialize

/// The slots as one JSON array: item data is flat.
std::wstring SlotsText(const std::vector<MemorySlot>& slots) {
  Json::Value array(Json::arrayValue);
  for (const MemorySlot& slot : slots) {
    Json::Value object(Json::objectValue);
    for (const auto& [key, value] : slot.ItemData())
      object[String::UTF16ToUTF8(key)] = String::UTF16ToUTF8(value);
    array.append(std::move(object));
  }
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  return String::UTF8ToUTF16(Json::writeString(builder, array));
}

std::wstring MegabytesOfBytes(std::uint64_t bytes) {
  return MemoryInfo::AmountText(bytes >> 10);
}

}  // namespace

const std::map<std::wstring, std::wstring> MemoryEventMonitor::ITEM_EVENT_CONTEXT = {
    {kUsagePerInterval, L"F8E4A4FE-FA24-4755-BE18-9004F47BCC01"},
    {kContextUpdated, L"6D65FF95-FBEB-42A0-9413-C8044942A552"},
    {kChange, L"1E933368-8C19-4FBB-A4A4-F53D224D0F93"},
    {L"Memory test", L"B86E9BA0-5811-481C-9D14-F22BBF2E3579"},
};

MemoryEventMonitor::MemoryEventMonitor(const MonitorServices& monitor_services)
    : EventMonitorBase(monitor_services.manager.get_svrHandle(), false, monitor_services),
      dataset_context_event_(monitor_services.runtime
                                 .MakeNamedEvent(L"MemoryEvent_LogDatasetContext", platform::EventReset::kManual, false,
                                                 platform::EventAccess::kServiceOnly)
                                 .event),
      usage_report_(monitor_services.runtime, kUsagePerInterval, [this] { ReadUsagePerInterval(); }) {
  TVK::utility::InitLog(log_, L"MemoryEventMonitor.log", 4);
}

MemoryEventMonitor::~MemoryEventMonitor() = default;

// Fills facts_. 0, or the error for which there are none.
int MemoryEventMonitor::ReadFacts() {
  const auto status = services().machine.memory().ReadStatus();
  const std::uint64_t usable_kb = status ? status->total_bytes >> 10 : 0;
  SMBiosTool tool(services().machine.firmware());
  const bool no_table = tool.Initialize() == kNoSmbiosTable;
  MemoryInfo info(tool, usable_kb);
  if (const int error = info.GetMemoryInfo(); error != 0) {
    if (!no_table) return error;
    log_.e(L"MemoryEventMonitor StartMonitor GetMemoryInfo() return fail! err: %d", error);
    log_.i(L"%s: the machine gives no SMBIOS table (%s); no memory slot is described, the rest goes on",
           L"MemoryEventMonitor::StartMonitor", String::UTF8ToUTF16(tool.Problem()));
  }
  if (!info.slots().empty()) facts_[L"mem_slot_info"] = SlotsText(info.slots());
  if (info.maximum_physical_kb() != 0) {
    facts_[L"MaximumPhysicalMemory"] = MemoryInfo::AmountText(info.maximum_physical_kb());
  }
  const std::uint64_t total_kb = std::max(info.total_physical_kb(), usable_kb);
  if (total_kb != 0) facts_[L"TotalPhysicalMemory"] = MemoryInfo::AmountText(total_kb);
  facts_known_ = true;
  return 0;
}

void MemoryEventMonitor::StartMonitor(std::wstring /*name*/) {
  const int error = ReadFacts();
  if (error != 0) {
    log_.e(L"MemoryEventMonitor StartMonitor GetMemoryInfo() return fail! err: %d", error);
    return;
  }
  LogDatasetContext(true);
  if (IsNewDeviceInitNeeded(dataset_id)) {
    if (LogDevInitEvent() != 0) log_.d(L"Memory LogDevInitEvent failed");
    SetDevicePathChanged(false);
  }
  if (!StartReporting()) return;
  follows_settings_ = true;
  ReadAndUpdateDatasetSettings();
}

// False when the monitor is stopping or cannot be stopped.
bool MemoryEventMonitor::StartReporting() {
  const std::lock_guard lock(thread_mutex_);
  if (stopping_) return false;
  try {
    stop_event_ = services().runtime.MakeEvent(platform::EventReset::kAuto);
  } catch (const std::system_error& failure) {
    log_.e(L"MemoryEventMonitor StartMonitor CreateEvent() return error %d!", failure.code().value());
    return false;
  }
  log_.d(L"MemoryEventMonitor StartMonitor new WaitParentProcessExitThread thread");
  try {
    report_thread_ = services().runtime.StartThread("tvk-memory", [this] { MemoryStatusReportThread(); });
  } catch (const std::system_error&) {
    log_.e(L"MemoryEventMonitor StartMonitor _waitParentProcessExitThread is NULL!");
  }
  return true;
}

void MemoryEventMonitor::StopMonitor() {
  if (dataset_context_event_ != nullptr) dataset_context_event_->Reset();
  usage_report_.RequestStop();  // before anything is waited for
  std::thread report_thread;
  {
    const std::lock_guard lock(thread_mutex_);
    stopping_ = true;
    if (stop_event_ != nullptr) stop_event_->Set();
    report_thread.swap(report_thread_);
  }
  if (report_thread.joinable()) services().runtime.Join(report_thread);
  usage_report_.Stop();
}

bool MemoryEventMonitor::UpdateThrottleParameters(std::map<std::wstring, std::wstring>& settings) {
  const MemorySettings fresh = ReadMemorySettings(settings);
  for (const SettingReading& reading : fresh.readings) {
    if (reading.mistake) log_.e(L"%s: %s", reading.key, reading.reason);
  }
  if (fresh.change_event_enabled) change_event_enabled_ = *fresh.change_event_enabled;
  const bool changed = usage_report_.SetInterval(fresh.read_usage_interval_ms);
  log_.d(L"%s: ReadUsageInterval = %llu, MemoryEventEnabled = %d, bReadUsageIntervalChanged = %d",
         L"MemoryEventMonitor::UpdateThrottleParameters", fresh.read_usage_interval_ms, change_event_enabled_.load(),
         changed);
  return changed;
}

void MemoryEventMonitor::ReadAndUpdateDatasetSettings() {
  if (!follows_settings_) return;  // StartMonitor reads them when it gets there
  ReadSettingsAndFollowInterval(dataset_id, ITEM_EVENT_CONTEXT.at(kUsagePerInterval), usage_report_,
                                L"MemoryEventMonitor::ReadAndUpdateDatasetSettings");
}

void MemoryEventMonitor::LogDatasetContext(bool new_context_needed) {
  if (!facts_known_) return;
  bool memory_changed = false;
  {
    const std::lock_guard lock(context_mutex_);
    if (dataset_context_event_ != nullptr) dataset_context_event_->Reset();
    DatasetContext last;
    const bool described_before = services().store.GetLastDatasetContext(dataset_id, last) == 0;
    const bool facts_differ = IsNewDatasetContextNeeded(dataset_id, facts_, false, dataset_context_id_);
    const bool needed = facts_differ || new_context_needed;
    log_.d(
        L"MemoryEventMonitor LogDatasetContext bIsNeedNewDatasetContext is %s, bIsNeedToLogDatasetContextOnChange is "
        L"%s.",
        needed ? L"true" : L"false", services().manager.get_NeedToLogDatasetContextOnChange() ? L"true" : L"false");
    if (needed) {
      const int error = WriteDatasetContext(kRow, facts_, dataset_context_id_);
      if (error != 0) log_.e(L"MemoryEventMonitor LogDatasetContext LogDatasetContext() return error: %d", error);
    }
    memory_changed = described_before && facts_differ;
    if (dataset_context_event_ != nullptr) dataset_context_event_->Set();
  }
  if (memory_changed) {
    const auto status = services().machine.memory().ReadStatus();
    LogItemEvent(kContextUpdated, status ? UsageToItemData(*status) : ItemData());
  }
}

std::wstring MemoryEventMonitor::DatasetContextId() {
  const std::lock_guard lock(context_mutex_);
  return dataset_context_id_;
}

int MemoryEventMonitor::LogDevInitEvent() {
  if (!facts_known_) return 0;
  return WriteItemEvent(kRow, DatasetContextId(), L"DeviceInit", DeviceInitItemId, {});
}

int MemoryEventMonitor::LogItemEvent(const std::wstring& memory_event, ItemData data) {
  const auto item = ITEM_EVENT_CONTEXT.find(memory_event);
  if (item == ITEM_EVENT_CONTEXT.end()) {
    log_.e(
        L"MemoryEventMonitor LogItemEvent memory_event can't be found, event name: \"%s\"! This should never have "
        L"happened!",
        memory_event);
    return -1;
  }
  const int error = WriteItemEvent(kRow, DatasetContextId(), item->first, item->second, std::move(data));
  if (error != 0) log_.e(L"MemoryEventMonitor LogItemEvent(%s) return error: %d", memory_event, error);
  return error;
}

ItemData MemoryEventMonitor::UsageToItemData(const platform::MemoryStatus& status) {
  return {{L"FreePhysicalMemory", MegabytesOfBytes(status.available_bytes)},
          {L"VisibleMemory", MegabytesOfBytes(status.total_bytes)}};
}

void MemoryEventMonitor::ReadUsagePerInterval() {
  if (isTelemetryScopeNone()) return;
  std::uint32_t error = 0;
  const auto status = services().machine.memory().ReadStatus(&error);
  if (!status) {
    log_.e(L"%s: GlobalMemoryStatusEx() return error %d!", L"MemoryEventMonitor::ReadUsagePerInterval", error);
    return;
  }
  LogItemEvent(kUsagePerInterval, UsageToItemData(*status));
}

SecondTick::Work MemoryEventMonitor::LookAtLoad(bool& failing) {
  // Nobody consents any more, and the stop is on its way.
  if (isTelemetryScopeNone()) return nullptr;
  std::uint32_t error = 0;
  const auto status = services().machine.memory().ReadStatus(&error);
  if (!status) {
    if (!failing) log_.e(L"MemoryEventMonitor MemoryStatusReportThread GlobalMemoryStatusEx() return error %d!", error);
    failing = true;
    return nullptr;
  }
  failing = false;
  const std::uint32_t load = status->load_percent;
  const std::uint32_t last = last_reported_load_;
  if (!change_event_enabled_ || (load > last ? load - last : last - load) < kReportedChangePercent) {
    return nullptr;
  }
  last_reported_load_ = load;
  return [this, status = *status] {
    if (!isTelemetryScopeNone()) LogItemEvent(kChange, UsageToItemData(status));
  };
}

void MemoryEventMonitor::MemoryStatusReportThread() {
  log_.d(L"MemoryEventMonitor MemoryStatusReportThread thread start...");
  if (stop_event_ == nullptr) {
    log_.e(L"MemoryEventMonitor MemoryStatusReportThread: _hStopEvent is NULL! thread exit!");
    return;
  }
  std::uint32_t error = 0;
  const auto status = services().machine.memory().ReadStatus(&error);
  bool failing = !status;
  if (status) {
    last_reported_load_ = status->load_percent;
  } else {
    log_.e(L"MemoryEventMonitor MemoryStatusReportThread GlobalMemoryStatusEx() return error %d!", error);
  }
  services().second_tick.Watch("MemoryStatusReportThread", *stop_event_, [&] { return LookAtLoad(failing); });
  log_.d(L"MemoryEventMonitor MemoryStatusReportThread: stop event is found, MemoryStatusReportThread exit");
}
