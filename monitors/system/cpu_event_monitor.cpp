#include "monitors/system/cpu_event_monitor.h"

#include <algorithm>

#include "monitors/system/cpu_settings.h"

namespace {

constexpr wchar_t kNearCapacity[] = L"CPUNearCapacity";
constexpr wchar_t kUsagePerInterval[] = L"ReadUsagePerInterval";
constexpr int kSamplesOfPeakCheck = 5;
// A span that would leave less than this between two samples is stretched to it.
constexpr std::uint32_t kShortestSpanMs = 15;
constexpr std::uint32_t kShortestPauseMs = 2;

constexpr TVK::MonitorLines kLines = {
    .context_decision = L"CpuEventMonitor LogDatasetContext bIsNeedNewDatasetContext is %s.",
    .context_failure = L"CpuEventMonitor LogDatasetContext LogDatasetContext() return error: %d",
    .init_failure = L"CPU LogDevInitEvent failed",
    .item_failure = L"CpuEventMonitor LogItemEvent(%s) return error: %d",
};

}  // namespace

const std::map<std::wstring, std::wstring> CpuEventMonitor::ITEM_EVENT_CONTEXT = {
    {kNearCapacity, L"A0C1B46E-A5EB-454B-A6F4-8A0A77BEF076"},
    {kUsagePerInterval, L"8D5CE35C-2FDF-44A2-8CBD-558E85983868"},
};

CpuEventMonitor::CpuEventMonitor(const TVK::MonitorServices& monitor_services)
    : ScheduledMonitor(monitor_services, {kRow, ITEM_EVENT_CONTEXT, kLines},
                       TVK::ReportRule{.item = kUsagePerInterval,
                                       .report = [this] { ReadUsagePerInterval(); },
                                       .caller = L"CpuEventMonitor::ReadAndUpdateDatasetSettings"}),
      collector_(monitor_services.machine.processors(), monitor_services.runtime.clock()),
      peak_threshold_(TVK::CpuSettings{}.peak_threshold_percent),
      peak_threshold_duration_ms_(TVK::CpuSettings{}.peak_threshold_duration_ms) {}

void CpuEventMonitor::StartMonitor(std::wstring /*name*/) {
  if (!MakeStopEvent(L"CpuEventMonitor::StartMonitor", L"%s: CreateEvent() return error %d!")) return;
  log_.d(L"CpuEventMonitor::StartMonitor Entry");
  LogDatasetContext(true);
  if (facts_asked_for_ && !cpu_info_loaded_) return;
  InitialiseDevice();
  StartThread("tvk-cpu", [this] { WatchSeconds("CpuCheckEntry", [this] { return CpuCheckEntry(); }); });
  FollowSettings();
}

bool CpuEventMonitor::UpdateThrottleParameters(std::map<std::wstring, std::wstring>& settings) {
  const TVK::CpuSettings fresh = TVK::ReadCpuSettings(settings);
  peak_threshold_ = fresh.peak_threshold_percent;
  peak_threshold_duration_ms_ = fresh.peak_threshold_duration_ms;
  const bool changed = TakeInterval(fresh.read_usage_interval_ms, fresh.readings);
  log_.d(
      L"%s: ReadUsageInterval = %llu, CPUPeakThreshold = %d, CPUPeakThresholdDuration = %llu, "
      L"bReadUsageIntervalChanged = %d",
      L"CpuEventMonitor::UpdateThrottleParameters", fresh.read_usage_interval_ms, fresh.peak_threshold_percent,
      fresh.peak_threshold_duration_ms, changed);
  return changed;
}

ItemData CpuEventMonitor::FactsToItemData(const _SYSCPU_INFORMATION& facts) {
  // A zero stands for what the machine does not tell, and an empty text is left out.
  const auto known = [](std::uint64_t number) { return number == 0 ? std::wstring() : std::to_wstring(number); };
  // But a machine that tells of its L2 caches and of none above them has none.
  const bool no_l3 = facts.l3_cache_count == 0 && facts.l2_cache_count != 0;
  ItemData data = {
      {L"cpu_name", facts.processor_name},
      {L"cpu_addresswidth", known(facts.address_width)},
      {L"cpu_numofcores", known(facts.number_of_cores)},
      {L"cpu_numoflogicalprocessors", known(facts.number_of_logical_processors)},
      {L"cpu_l2cachesize", known(facts.l2_cache_total)},
      {L"cpu_l3cachesize", no_l3 ? L"0" : known(facts.l3_cache_total)},
  };
  SanitizeItemData(data, L"UnKnown");
  return data;
}

std::optional<std::vector<TVK::DescribedDevice>> CpuEventMonitor::Describe() {
  if (!facts_asked_for_) {
    const int error = CPUInfo::GetCpuInformation(services().machine.processors(), facts_);
    if (error == 0) {
      cpu_info_loaded_ = true;
    } else {
      log_.d(L"CpuEventMonitor::StartMonitor GetCpuInformation failed! retid=%d", error);
    }
    facts_asked_for_ = true;
  }
  if (!cpu_info_loaded_) return std::nullopt;
  return {{{{}, FactsToItemData(facts_)}}};
}

int CpuEventMonitor::LogItemEvent(int usage, const std::wstring& item_name) {
  return WriteItem(item_name, {{L"CPUUtilization", Int2Wstring(usage)}});
}

std::wstring CpuEventMonitor::Int2Wstring(int number) {
  return TVK::FormatWide(L"%d", number);
}

void CpuEventMonitor::ReadUsagePerInterval() {
  if (!Admits()) return;
  if (!facts_asked_for_) LogDatasetContext(true);
  if (!cpu_info_loaded_) {
    log_.e(L"%s: CPUInfo is not loaded.", L"CpuEventMonitor::ReadUsagePerInterval");
    return;
  }
  if (!Pause(collector_.UntilMeasured()) || !Admits()) return;
  LogItemEvent(std::min(collector_.GetCpuUsageInt(), 100), kUsagePerInterval);
}

TVK::SecondTick::Work CpuEventMonitor::CpuCheckEntry() {
  if (!Admits()) return nullptr;
  if (!facts_asked_for_) return [this] { LogDatasetContext(true); };  // the consent was missing at the start
  if (!cpu_info_loaded_) return nullptr;
  collector_.GetCpuUsageInt();  // what happened before this check is not its business
  const int sample = collector_.GetCpuUsageInt();
  if (sample < peak_threshold_) return nullptr;
  return [this, sample] { FollowPeak(sample); };
}

// `sample`: the first of the check, at or above the threshold.
void CpuEventMonitor::FollowPeak(int sample) {
  const std::uint32_t span_ms = peak_threshold_duration_ms_;
  const std::chrono::milliseconds pause(span_ms < kShortestSpanMs ? kShortestPauseMs : span_ms / kSamplesOfPeakCheck);
  for (int samples = 1;; ++samples) {
    if (!Pause(pause)) {
      log_.d(L"%s: Stop Event received", L"CpuEventMonitor::CpuCheckEntry");
      break;
    }
    if (samples == kSamplesOfPeakCheck) break;
    if (!Admits()) return;
    sample = collector_.GetCpuUsageInt();
    if (sample < peak_threshold_) return;
  }
  log_.d(L"CpuEventMonitor CpuCheckEntry Utilization(percentage):%d", sample);
  LogItemEvent(std::min(sample, 100), kNearCapacity);
}
