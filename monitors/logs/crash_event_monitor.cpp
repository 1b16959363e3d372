#include "monitors/logs/crash_event_monitor.h"

#include <algorithm>
#include <utility>

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
};

CrashEventMonitor::CrashEventMonitor(const TVK::MonitorServices& monitor_services)
    : LogMonitor(monitor_services, {kRow, ITEM_EVENT_CONTEXT, kLines}) {}

void CrashEventMonitor::StartMonitor(std::wstring /*name*/) {
  if (!MakeStopEvent(L"", L"CrashEventMonitor StartMonitor CreateEvent() return error %d!")) return;
  LogDatasetContext(false);
  InitialiseDevice();
  FollowLogs("tvk-crashes");
}

std::optional<std::vector<TVK::DescribedDevice>> CrashEventMonitor::Describe() {
  return std::vector<TVK::DescribedDevice>{{{}, {{L"Channels", L"Application, System"}}}};
}

bool CrashEventMonitor::TakeEvent(const TVK::RenderedEvent& event, const std::string& xml,
                                  const TVK::DatasetState& behind) {
  std::optional<TVK::CrashReport> report = TVK::ReadCrashReport(event, xml);
  if (!report) return true;
  const auto time = event.fields.find(L"TimeCreated");
  if (counted_ && counted_->report.item == report->item && counted_->report.data == report->data) {
    ++counted_->count;
    counted_->behind = behind;
    return true;
  }
  if (!Flush()) return false;
  counted_ = {std::move(*report), 1, services().runtime.clock().Steady(),
              time == event.fields.end() ? std::wstring() : time->second, behind};
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
