#include "monitors/system/system_bios_event_monitor.h"

#include "client/text/string.h"
#include "monitors/logs/event_log_rendering.h"
#include "platform/system_facts.h"

namespace {

constexpr wchar_t kReadInfoPerBoot[] = L"ReadInfoPerBoot";
constexpr wchar_t kBootKey[] = L"boot";  // the name of the boot that has its item

// In this order. The start of the kernel comes first, since it lies before the start of every service: a later record
// of the same boot would make an item event written before it look like one of the boot before. A restart that was
// asked for but has not happened yet costs at most one record too many.
constexpr const char* kBootQueries[] = {
    "*[System[Provider[@Name='Microsoft-Windows-Kernel-General'] and (EventID=12)]]",
    "*[System[Provider[@Name='EventLog'] and (EventID=6005)]]",
    "*[System[(EventID=1074)]]",
};

constexpr TVK::MonitorLines kLines = {
    .log_opened = L"SystemBiosEventMonitor Log Intialize OK!",
    .context_decision = L"SystemBiosEventMonitor LogDatasetContext bIsNeedNewDatasetContext is %s.",
    .context_failure = L"SystemBiosEventMonitor LogDatasetContext LogDatasetContext() return error: %d",
    .init_failure = L"SystemBios LogDevInitEvent failed",
    .item_failure = L"%s : LogItemEvent return error: %d",
    .item_writer = L"SystemBiosEventMonitor::LogItemEvent",
};

}  // namespace

const std::map<std::wstring, std::wstring> SystemBiosEventMonitor::ITEM_EVENT_CONTEXT = {
    {kReadInfoPerBoot, L"D385ED5A-E1CF-4D30-8CBE-DF063D4200F6"},
};

SystemBiosEventMonitor::SystemBiosEventMonitor(const TVK::MonitorServices& monitor_services)
    : ScheduledMonitor(monitor_services, {kRow, ITEM_EVENT_CONTEXT, kLines}),
      info_(&monitor_services.machine_information) {}

void SystemBiosEventMonitor::StartMonitor(std::wstring /*name*/) {
  if (!Admits()) return;
  info_.CollectBiosInfo(log_);
  if (info_.ToItemData().empty()) {
    log_.i(L"%s: neither an SMBIOS table nor the system tells anything of the firmware; nothing is logged",
           L"SystemBiosEventMonitor::StartMonitor");
    return;
  }
  facts_known_ = true;
  LogDatasetContext(IsNewDeviceInitNeeded(dataset_id));
  InitialiseDevice();
  if (!stopping() && Admits()) LogOncePerBoot();
}

void SystemBiosEventMonitor::LogOncePerBoot() {
  constexpr wchar_t kThis[] = L"SystemBiosEventMonitor::StartMonitor";
  // The last item of the whole store, and no other record in its place: a dataset context or a device-initialisation
  // that was written before this boot's item must not stand for it.
  ItemEvent last;
  const int found =
      services().store.GetLastItemEventWithItemId(dataset_id, ITEM_EVENT_CONTEXT.at(kReadInfoPerBoot), last);
  _lastModifiedTime = found == 0 ? TimeOfRecord(last.item_time()) : 0;
  log_.d(L"%s Log _lastModifiedTime : %lld", kThis, _lastModifiedTime);
  const std::optional<std::int64_t> boot = GetLastbootTime();
  if (!boot) {
    log_.e(L"%s: the time of the last boot is not known; nothing is logged", kThis);
    return;
  }
  log_.d(L"%s Log lastBootTime : %lld", kThis, *boot);
  boot_id_ = TVK::String::UTF8ToUTF16(services().machine.system().ReadBootId());
  if (!HasItem(*boot)) LogItemEvent(info_);
}

bool SystemBiosEventMonitor::HasItem(std::int64_t boot_time) const {
  // A boot's time moves with every step of the clock, its name does not.
  std::wstring last_boot;
  if (!boot_id_.empty() && services().store.GetState(dataset_id, kBootKey, last_boot) == 0) {
    return last_boot == boot_id_;
  }
  return _lastModifiedTime >= boot_time;
}

std::optional<std::int64_t> SystemBiosEventMonitor::GetLastbootTime() {
  constexpr wchar_t kThis[] = L"SystemBiosEventMonitor::GetLastbootTime";
  for (const char* const query : kBootQueries) {
    const TVK::EventLogAnswer answer = TVK::ReadLoggedEvents(services().machine.event_log(), services().runtime.clock(),
                                                             "System", query, 1, log_, kThis);
    if (!answer.events.empty() && answer.events.front().time_created) return answer.events.front().time_created;
    if (answer.failure == platform::EventLogFailure::kNotSupported) break;
    // The log may know the boot and did not tell: silence until the next start rather than a second record of one boot.
    if (answer.failure != platform::EventLogFailure::kNone) return std::nullopt;
  }
  return services().machine.system().ReadBootTime();
}

std::optional<std::vector<TVK::DescribedDevice>> SystemBiosEventMonitor::Describe() {
  if (!facts_known_) return std::nullopt;
  return {{{{}, info_.ToItemData()}}};
}

int SystemBiosEventMonitor::LogItemEvent(const SystemBiosInfo& info) {
  return WriteItem(kReadInfoPerBoot, info.ToItemData(), {}, {boot_id_.empty() ? L"" : kBootKey, boot_id_});
}
