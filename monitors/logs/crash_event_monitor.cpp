#include "monitors/logs/crash_event_monitor.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include "client/store/kept_state.h"
#include "client/text/string.h"
#include "platform/system_facts.h"

namespace {

constexpr TVK::MonitorLines kLines = {
    .log_opened = L"CrashEventMonitor Log Intialize OK!",
    .context_decision = L"CrashEventMonitor LogDatasetContext bIsNeedNewDatasetContext is %s.",
    .context_failure = L"CrashEventMonitor LogDatasetContext LogDatasetContext() return error: %d",
    .init_failure = L"Crash LogDevInitEvent failed",
    .item_failure = L"CrashEventMonitor LogItemEvent(%s) return error: %d",
};

}  // namespace

const std::map<std::wstring, std::wstring> CrashEventMonitor::ITEM_EVENT_CONTEXT = {
    {TVK::kSystemCrash, L"7F0F7DD4-CD5D-4F30-987E-673D0CA1F9C0"},
    {TVK::kApplicationCrash, L"A17B4F5F-019E-42DB-9642-21ACB006D0AD"},
    {TVK::kApplicationHang, L"F75B9D13-8405-49B1-961F-E4B871D71089"},
    {TVK::kHardwareError, L"EEC382A1-D7E6-4353-9ABA-28C9EFA87CF3"},
    {kInterruptedItem, L"FA852CCF-CCB9-4223-99A7-AA25830607FF"},
};

CrashEventMonitor::CrashEventMonitor(const TVK::MonitorServices& monitor_services)
    : LogMonitor(monitor_services, {kRow, ITEM_EVENT_CONTEXT, kLines},
                 TVK::ReportRule{.item = TVK::kHardwareError, .report = [this] { LookAtMemory(); }}) {}

void CrashEventMonitor::StartMonitor(std::wstring /*name*/) {
  if (!MakeStopEvent(L"", L"CrashEventMonitor StartMonitor CreateEvent() return error %d!")) return;
  LogDatasetContext(false);
  InitialiseDevice();
  FollowLogs("tvk-crashes");
  if (!services().machine.memory().ReadErrors().empty()) {
    ReportEvery(static_cast<std::uint32_t>(std::chrono::milliseconds(kMemoryLook).count()));
  }
}

bool CrashEventMonitor::BeginReading(bool withdrawn) {
  const std::lock_guard lock(memory_mutex_);
  memory_known_ = TellMemory(!withdrawn);
  return memory_known_;
}

std::optional<std::vector<TVK::DescribedDevice>> CrashEventMonitor::Describe() {
  return std::vector<TVK::DescribedDevice>{{{}, {{L"Channels", L"Application, System"}}}};
}

bool CrashEventMonitor::TakeEvent(const TVK::RenderedEvent& event, const std::string& xml,
                                  const TVK::DatasetState& behind) {
  std::optional<TVK::CrashReport> report = TVK::ReadCrashReport(event, xml);
  if (!report) return true;
  if (IsCounted(*report, event)) return LookAtMemory();
  const auto time = event.fields.find(L"TimeCreated");
  // Read at once may be what was logged in a week, by a clock that was set back meanwhile.
  const bool near =
      counted_ &&
      (!event.time_created || !counted_->time_created ||
       std::chrono::abs(std::chrono::seconds(*event.time_created - *counted_->time_created)) <= kSameWithin);
  if (near && counted_->report.item == report->item && counted_->report.data == report->data) {
    ++counted_->count;
    counted_->behind = behind;
    return true;
  }
  if (!Flush()) return false;
  counted_ = {std::move(*report),
              1,
              services().runtime.clock().Steady(),
              time == event.fields.end() ? std::wstring() : time->second,
              event.time_created,
              behind};
  return true;
}

std::chrono::milliseconds CrashEventMonitor::Patience() {
  if (!counted_) return platform::kForever;
  const auto left = counted_->begin + kSameWithin - services().runtime.clock().Steady();
  return std::max(std::chrono::ceil<std::chrono::milliseconds>(left), std::chrono::milliseconds(0));
}

bool CrashEventMonitor::Flush() {
  if (!counted_) return true;
  ItemData data = counted_->report.data;
  data[L"Count"] = std::to_wstring(counted_->count);
  if (!counted_->time.empty()) data[L"TimeCreated"] = counted_->time;
  if (WriteItem(counted_->report.item, std::move(data), {}, counted_->behind) > 0) return false;
  counted_.reset();
  return true;
}

bool CrashEventMonitor::IsCounted(const TVK::CrashReport& report, const TVK::RenderedEvent& event) {
  if (!TVK::IsOfMemory(report) || services().machine.memory().ReadErrors().empty()) return false;
  const std::optional<std::int64_t> boot = services().machine.system().ReadBootTime();
  return !boot || !event.time_created || *event.time_created >= *boot;
}

bool CrashEventMonitor::LookAtMemory() {
  const std::lock_guard lock(memory_mutex_);
  return !memory_known_ || TellMemory(true);
}

bool CrashEventMonitor::TellMemory(bool tell) {
  if (tell) {
    std::wstring place;
    const int result = TVK::ReadKeptState(services().store, dataset_id, TVK::kBookmarkState, place);
    if (result != 0 && result != TVK::kStoreNotFound) return false;
    // Behind a withdrawal the reading, which begins anew, passes what was counted until then.
    if (!Admits() || place == TVK::kWithdrawnPlace) return true;
  }
  const std::wstring boot = TVK::String::UTF8ToUTF16(services().machine.system().ReadBootId());
  return std::ranges::all_of(services().machine.memory().ReadErrors(), [&](const platform::MemoryErrors& counted) {
    return TellMemoryErrors(counted, boot, tell);
  });
}

bool CrashEventMonitor::TellMemoryErrors(const platform::MemoryErrors& counted, const std::wstring& boot, bool tell) {
  const std::wstring key = TVK::kMemoryErrorsState + TVK::String::UTF8ToUTF16(counted.controller);
  std::wstring kept;
  const int result = TVK::ReadKeptState(services().store, dataset_id, key, kept);
  if (result != 0 && result != TVK::kStoreNotFound) return false;
  platform::MemoryErrors known;
  std::wstring known_boot;
  std::wistringstream(kept) >> known.corrected >> known.uncorrected >> known_boot;
  // The counters begin anew with a boot, and when their driver is loaded again.
  if (known_boot != boot || counted.corrected < known.corrected || counted.uncorrected < known.uncorrected) known = {};
  const platform::MemoryErrors since{counted.controller, counted.corrected - known.corrected,
                                     counted.uncorrected - known.uncorrected};
  if (since.corrected == 0 && since.uncorrected == 0) return true;
  const TVK::DatasetState now{
      key, std::to_wstring(counted.corrected) + L' ' + std::to_wstring(counted.uncorrected) + L' ' + boot};
  if (!tell) return services().store.KeepState(dataset_id, now) == 0;
  TVK::CrashReport report = TVK::MemoryErrorReport(since);
  report.data[L"Count"] = std::to_wstring(since.corrected + since.uncorrected);
  return WriteItem(report.item, std::move(report.data), {}, now) <= 0;
}
