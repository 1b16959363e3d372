#include "monitors/system/memory_event_monitor.h"

#include <json/value.h>
#include <json/writer.h>

#include <algorithm>
#include <cstdlib>
#include <cwchar>
#include <utility>

#include "client/text/string.h"
#include "monitors/system/memory_settings.h"

using TVK::String;

namespace {

constexpr wchar_t kUsagePerInterval[] = L"MemoryUsagePerInterval";
constexpr wchar_t kContextUpdated[] = L"MemoryEvent context updated";
constexpr wchar_t kChange[] = L"Memory change";
constexpr std::uint32_t kReportedChangePercent = 5;
constexpr int kNoSmbiosTable = 2;  // SMBiosTool::Initialize
// The least that a running system is given or loses; what the system keeps for itself varies by less, as from one
// kernel to the next.
constexpr long long kLeastMemoryMb = 128;

constexpr TVK::MonitorLines kLines = {
    .context_decision =
        L"MemoryEventMonitor LogDatasetContext bIsNeedNewDatasetContext is %s, bIsNeedToLogDatasetContextOnChange is "
        L"%s.",
    .context_failure = L"MemoryEventMonitor LogDatasetContext LogDatasetContext() return error: %d",
    .init_failure = L"Memory LogDevInitEvent failed",
    .item_failure = L"MemoryEventMonitor LogItemEvent(%s) return error: %d",
    .unknown_item =
        L"MemoryEventMonitor LogItemEvent memory_event can't be found, event name: \"%s\"! This should never have "
        L"happened!",
};

/// The slots as one JSON array: item data is flat.
std::wstring SlotsText(const std::vector<TVK::MemorySlot>& slots) {
  Json::Value array(Json::arrayValue);
  for (const TVK::MemorySlot& slot : slots) {
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

/// The fact of this key, and 0 when it is not there, out of "16384MB"; the fact goes.
long long TakeMegabytes(ItemData& facts, const wchar_t* key) {
  const auto fact = facts.find(key);
  if (fact == facts.end()) return 0;
  const long long megabytes = std::wcstoll(fact->second.c_str(), nullptr, 10);
  facts.erase(fact);
  return megabytes;
}

/// Whether both describe the same modules, however much of them the system keeps for itself.
bool IsSameMemory(ItemData before, ItemData now) {
  constexpr wchar_t kTotal[] = L"TotalPhysicalMemory";
  const long long moved = TakeMegabytes(before, kTotal) - TakeMegabytes(now, kTotal);
  return before == now && std::abs(moved) < kLeastMemoryMb;
}

}  // namespace

const std::map<std::wstring, std::wstring> MemoryEventMonitor::ITEM_EVENT_CONTEXT = {
    {kUsagePerInterval, L"F8E4A4FE-FA24-4755-BE18-9004F47BCC01"},
    {kContextUpdated, L"6D65FF95-FBEB-42A0-9413-C8044942A552"},
    {kChange, L"1E933368-8C19-4FBB-A4A4-F53D224D0F93"},
    {L"Memory test", L"B86E9BA0-5811-481C-9D14-F22BBF2E3579"},
};

MemoryEventMonitor::MemoryEventMonitor(const TVK::MonitorServices& monitor_services)
    : ScheduledMonitor(monitor_services, {kRow, ITEM_EVENT_CONTEXT, kLines},
                       TVK::ReportRule{.item = kUsagePerInterval,
                                       .report = [this] { ReadUsagePerInterval(); },
                                       .caller = L"MemoryEventMonitor::ReadAndUpdateDatasetSettings"}) {}

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
  return 0;
}

void MemoryEventMonitor::StartMonitor(std::wstring /*name*/) {
  LogDatasetContext(true);
  if (no_facts_) return;
  InitialiseDevice();
  if (!MakeStopEvent(L"", L"MemoryEventMonitor StartMonitor CreateEvent() return error %d!")) return;
  log_.d(L"MemoryEventMonitor StartMonitor new WaitParentProcessExitThread thread");
  StartThread(
      "tvk-memory", [this] { MemoryStatusReportThread(); },
      L"MemoryEventMonitor StartMonitor _waitParentProcessExitThread is NULL!");
  FollowSettings();
}

bool MemoryEventMonitor::UpdateThrottleParameters(std::map<std::wstring, std::wstring>& settings) {
  const TVK::MemorySettings fresh = TVK::ReadMemorySettings(settings);
  if (fresh.change_event_enabled) change_event_enabled_ = *fresh.change_event_enabled;
  const bool changed = TakeInterval(fresh.read_usage_interval_ms, fresh.readings);
  log_.d(L"%s: ReadUsageInterval = %llu, MemoryEventEnabled = %d, bReadUsageIntervalChanged = %d",
         L"MemoryEventMonitor::UpdateThrottleParameters", fresh.read_usage_interval_ms, change_event_enabled_.load(),
         changed);
  return changed;
}

std::optional<std::vector<TVK::DescribedDevice>> MemoryEventMonitor::Describe() {
  if (!facts_known_ && !no_facts_) {
    const int error = ReadFacts();
    if (error != 0) log_.e(L"MemoryEventMonitor StartMonitor GetMemoryInfo() return fail! err: %d", error);
    facts_known_ = error == 0;
    no_facts_ = error != 0;
  }
  if (no_facts_) return std::nullopt;
  return {{{{}, facts_}}};
}

void MemoryEventMonitor::OnDescriptionChanged(const TVK::DescribedDevice& device, const ItemData& before) {
  if (IsSameMemory(before, device.facts) || !Admits()) return;
  const auto status = services().machine.memory().ReadStatus();
  LogItemEvent(kContextUpdated, status ? UsageToItemData(*status) : ItemData());
}

ItemData MemoryEventMonitor::UsageToItemData(const platform::MemoryStatus& status) {
  return {{L"FreePhysicalMemory", MegabytesOfBytes(status.available_bytes)},
          {L"VisibleMemory", MegabytesOfBytes(status.total_bytes)}};
}

void MemoryEventMonitor::ReadUsagePerInterval() {
  if (!Admits()) return;
  std::uint32_t error = 0;
  const auto status = services().machine.memory().ReadStatus(&error);
  if (!status) {
    log_.e(L"%s: GlobalMemoryStatusEx() return error %d!", L"MemoryEventMonitor::ReadUsagePerInterval", error);
    return;
  }
  LogItemEvent(kUsagePerInterval, UsageToItemData(*status));
}

std::optional<platform::MemoryStatus> MemoryEventMonitor::ReadStatus(bool& failing) {
  std::uint32_t error = 0;
  const auto status = services().machine.memory().ReadStatus(&error);
  if (!std::exchange(failing, !status) && failing) {
    log_.e(L"MemoryEventMonitor MemoryStatusReportThread GlobalMemoryStatusEx() return error %d!", error);
  }
  return status;
}

TVK::SecondTick::Work MemoryEventMonitor::LookAtLoad(bool& failing) {
  if (!Admits()) return nullptr;
  const auto status = ReadStatus(failing);
  if (!status) return nullptr;
  const std::uint32_t load = status->load_percent;
  const std::uint32_t last = last_reported_load_;
  if (!change_event_enabled_ || (load > last ? load - last : last - load) < kReportedChangePercent) return nullptr;
  last_reported_load_ = load;
  return [this, status = *status] { LogItemEvent(kChange, UsageToItemData(status)); };
}

void MemoryEventMonitor::MemoryStatusReportThread() {
  log_.d(L"MemoryEventMonitor MemoryStatusReportThread thread start...");
  if (stop_event() == nullptr) {
    log_.e(L"MemoryEventMonitor MemoryStatusReportThread: _hStopEvent is NULL! thread exit!");
    return;
  }
  bool failing = false;
  const auto status = Admits() ? ReadStatus(failing) : std::nullopt;
  if (status) last_reported_load_ = status->load_percent;
  WatchSeconds("MemoryStatusReportThread", [&] { return LookAtLoad(failing); });
  log_.d(L"MemoryEventMonitor MemoryStatusReportThread: stop event is found, MemoryStatusReportThread exit");
}
