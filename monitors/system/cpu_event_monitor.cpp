#include "monitors/system/cpu_event_monitor.h"

#include <algorithm>
#include <system_error>

#include "client/text/string.h"

namespace {

constexpr wchar_t kNearCapacity[] = L"CPUNearCapacity";
constexpr wchar_t kUsagePerInterval[] = L"ReadUsagePerInterval";
constexpr int kSamplesOfPeakCheck = 5;
// A span that would leave less than this between two samples is stretched to it.
constexpr std::uint32_t kShortestSpanMs = 15;
constexpr std::uint32_t kShortestPauseMs = 2;

}  // namespace

const std::map<std::wstring, std::wstring> CpuEventMonitor::ITEM_EVENT_CONTEXT = {
    {kNearCapacity, L"A0C1B46E-A5EB-454B-A6F4-8A0A77BEF076"},
    {kUsagePerInterval, L"8D5CE35C-2FDF-44A2-8CBD-558E85983868"},
};

CpuEventMonitor::CpuEventMonitor(const MonitorServices& monitor_services)
    : EventMonitorBase(monitor_services.manager.get_svrHandle(), false, monitor_services),
      collector_(monitor_services.machine.processors()),
      dataset_context_event_(monitor_services.runtime
                                 .MakeNamedEvent(L"CPUEvent_LogDatasetContext", platform::EventReset::kManual, false,
                                                 platform::EventAccess::kServiceOnly)
                                 .event),
      peak_threshold_(CpuSettings{}.peak_threshold_percent),
      peak_threshold_duration_ms_(CpuSettings{}.peak_threshold_duration_ms),
      usage_report_(monitor_services.runtime, kUsagePerInterval, [this] { ReadUsagePerInterval(); }) {
  TVK::utility::InitLog(log_, L"CpuEventMonitor.log", 4);
}

CpuEventMonitor::~CpuEventMonitor() = default;

bool CpuEventMonitor::MakeStopEvent() {
  const std::lock_guard lock(thread_mutex_);
  if (stopping_) return false;
  try {
    stop_event_ = services().runtime.MakeEvent(platform::EventReset::kManual);
    return true;
  } catch (const std::system_error& failure) {
    log_.e(L"%s: CreateEvent() return error %d!", L"CpuEventMonitor::StartMonitor", failure.code().value());
    return false;
  }
}

void CpuEventMonitor::StartMonitor(std::wstring /*name*/) {
  if (!MakeStopEvent()) return;
  log_.d(L"CpuEventMonitor::StartMonitor Entry");
  Initialize();
  const int error = collector_.GetCpuInformation(facts_);
  if (error != 0) {
    log_.d(L"CpuEventMonitor::StartMonitor GetCpuInformation failed! retid=%d", error);
    return;
  }
  cpu_info_loaded_ = true;
  LogDatasetContext(true);
  if (IsNewDeviceInitNeeded(dataset_id)) {
    if (LogDevInitEvent() != 0) log_.d(L"CPU LogDevInitEvent failed");
    SetDevicePathChanged(false);
  }
  if (!StartPeakCheck()) return;
  follows_settings_ = true;
  ReadAndUpdateDatasetSettings();
}

// False when the monitor is stopping.
bool CpuEventMonitor::StartPeakCheck() {
  const std::lock_guard lock(thread_mutex_);
  if (stopping_) return false;
  check_thread_ = services().runtime.StartThread("tvk-cpu", [this] {
    services().second_tick.Watch("CpuCheckEntry", *stop_event_, [this] { return CpuCheckEntry(); });
  });
  return true;
}

void CpuEventMonitor::StopMonitor() {
  if (dataset_context_event_ != nullptr) dataset_context_event_->Reset();
  usage_report_.RequestStop();  // before anything is waited for
  std::thread check_thread;
  {
    const std::lock_guard lock(thread_mutex_);
    stopping_ = true;
    if (stop_event_ != nullptr) stop_event_->Set();
    check_thread.swap(check_thread_);
  }
  if (check_thread.joinable()) services().runtime.Join(check_thread);
  usage_report_.Stop();
}

bool CpuEventMonitor::UpdateThrottleParameters(std::map<std::wstring, std::wstring>& settings) {
  const CpuSettings fresh = ReadCpuSettings(settings);
  for (const SettingReading& reading : fresh.readings) {
    if (reading.mistake) log_.e(L"%s: %s", reading.key, reading.reason);
  }
  peak_threshold_ = fresh.peak_threshold_percent;
  peak_threshold_duration_ms_ = fresh.peak_threshold_duration_ms;
  const bool changed = usage_report_.SetInterval(fresh.read_usage_interval_ms);
  log_.d(
      L"%s: ReadUsageInterval = %llu, CPUPeakThreshold = %d, CPUPeakThresholdDuration = %llu, "
      L"bReadUsageIntervalChanged = %d",
      L"CpuEventMonitor::UpdateThrottleParameters", fresh.read_usage_interval_ms, fresh.peak_threshold_percent,
      fresh.peak_threshold_duration_ms, changed);
  return changed;
}

void CpuEventMonitor::ReadAndUpdateDatasetSettings() {
  if (!follows_settings_) return;  // StartMonitor reads them when it gets there
  ReadSettingsAndFollowInterval(dataset_id, ITEM_EVENT_CONTEXT.at(kUsagePerInterval), usage_report_,
                                L"CpuEventMonitor::ReadAndUpdateDatasetSettings");
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

void CpuEventMonitor::LogDatasetContext(bool new_context_needed) {
  if (!cpu_info_loaded_) return;
  const std::lock_guard lock(context_mutex_);
  if (dataset_context_event_ != nullptr) dataset_context_event_->Reset();
  const ItemData facts = FactsToItemData(facts_);
  const bool needed = IsNewDatasetContextNeeded(dataset_id, facts, new_context_needed, dataset_context_id_);
  log_.d(L"CpuEventMonitor LogDatasetContext bIsNeedNewDatasetContext is %s.", needed ? L"true" : L"false");
  if (needed) {
    const int error = WriteDatasetContext(kRow, facts, dataset_context_id_);
    if (error != 0) log_.e(L"CpuEventMonitor LogDatasetContext LogDatasetContext() return error: %d", error);
  }
  if (dataset_context_event_ != nullptr) dataset_context_event_->Set();
}

std::wstring CpuEventMonitor::DatasetContextId() {
  const std::lock_guard lock(context_mutex_);
  return dataset_context_id_;
}

int CpuEventMonitor::LogDevInitEvent() {
  if (!cpu_info_loaded_) return 0;
  return WriteItemEvent(kRow, DatasetContextId(), L"DeviceInit", DeviceInitItemId, {});
}

int CpuEventMonitor::LogItemEvent(int usage, const std::wstring& item_name) {
  return WriteItemEvent(kRow, DatasetContextId(), item_name, ITEM_EVENT_CONTEXT.at(item_name),
                        {{L"CPUUtilization", Int2Wstring(usage)}});
}

std::wstring CpuEventMonitor::Int2Wstring(int number) {
  return TVK::FormatWide(L"%d", number);
}

void CpuEventMonitor::ReadUsagePerInterval() {
  if (!cpu_info_loaded_) {
    log_.e(L"%s: CPUInfo is not loaded.", L"CpuEventMonitor::ReadUsagePerInterval");
    return;
  }
  if (isTelemetryScopeNone()) return;
  const int usage = std::min(collector_.GetCpuUsageInt(), 100);
  const int error = LogItemEvent(usage, kUsagePerInterval);
  if (error != 0) log_.e(L"CpuEventMonitor LogItemEvent(%s) return error: %d", kUsagePerInterval, error);
}

SecondTick::Work CpuEventMonitor::CpuCheckEntry() {
  // Nobody consents any more, and the stop is on its way.
  if (!cpu_info_loaded_ || isTelemetryScopeNone()) return nullptr;
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
    if (services().runtime.Wait(*stop_event_, pause) != platform::kWaitTimeout) {
      log_.d(L"%s: Stop Event received", L"CpuEventMonitor::CpuCheckEntry");
      break;
    }
    if (samples == kSamplesOfPeakCheck) break;
    if (isTelemetryScopeNone()) return;
    sample = collector_.GetCpuUsageInt();
    if (sample < peak_threshold_) return;
  }
  if (isTelemetryScopeNone()) return;  // withdrawn while the check ran
  log_.d(L"CpuEventMonitor CpuCheckEntry Utilization(percentage):%d", sample);
  const int error = LogItemEvent(std::min(sample, 100), kNearCapacity);
  if (error != 0) log_.e(L"CpuEventMonitor LogItemEvent(CPUNearCapacity) return error: %d", error);
}
