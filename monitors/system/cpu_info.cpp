#include "monitors/system/cpu_info.h"

#include <algorithm>
#include <utility>

#include "client/text/string.h"

using TVK::String;

namespace {

constexpr wchar_t kLogFile[] = L"CpuEventMonitor.log";
constexpr int kMostRetries = 3;
constexpr std::size_t kReaders = 6;  // one sample that is passed over and the five of a peak check
// GetCpuInformation's own results, out of the way of the systems' error numbers.
constexpr int kNotSupported = -1;
constexpr int kNoEntries = -2;

}  // namespace

CPUInfo::CPUInfo(platform::Processors& processors, const platform::Clock& clock)
    : processors_(processors), clock_(clock) {
  TVK::utility::InitLog(log_, kLogFile, 4);
}

void CPUInfo::Open(platform::SteadyTime now) {
  opened_at_ = now;
  last_.reset();
  readers_.clear();
  platform::ProcessorLoadOpening opening = processors_.OpenUtility();
  const bool utility = opening.reader != nullptr;
  if (!utility) {
    // Told once, like the samples that follow from it.
    if (readable_) log_.e(L"CPUInfo::InitPdhQuery failed %lld", opening.error);
    opening = processors_.OpenTime();
    if (opening.reader == nullptr && readable_) log_.e(L"CPUInfo::InitPdhQuery failed %lld", opening.error);
  }
  while (opening.reader != nullptr) {
    readers_.push_back({std::move(opening.reader), now});
    if (readers_.size() < kReaders) opening = utility ? processors_.OpenUtility() : processors_.OpenTime();
  }
}

void CPUInfo::OpenWhenDue(platform::SteadyTime now) {
  const bool gives_nothing = readers_.empty() || !readable_;
  if (!opened_at_ || (gives_nothing && now - *opened_at_ >= kPatience)) Open(now);
}

CPUInfo::Reader* CPUInfo::ReaderFor(platform::SteadyTime now) {
  Reader* youngest = nullptr;
  for (Reader& reader : readers_) {
    if (now - reader.sampled_at < kLeastSpan) continue;
    if (youngest == nullptr || reader.sampled_at > youngest->sampled_at) youngest = &reader;
  }
  return youngest;
}

void CPUInfo::TellWhether(bool readable) {
  if (std::exchange(readable_, readable) == readable) return;
  if (readable) {
    log_.i(L"%s: the processors' utilisation can be read again", L"CPUInfo::GetCpuUsageInt");
  } else {
    log_.e(L"%s: the processors' utilisation cannot be read; 0 is reported until it can", L"CPUInfo::GetCpuUsageInt");
  }
}

void CPUInfo::InitPdhQuery() {
  const std::lock_guard lock(mutex_);
  Open(clock_.Steady());
}

void CPUInfo::CleanUp() {
  const std::lock_guard lock(mutex_);
  readers_.clear();
  opened_at_.reset();
}

int CPUInfo::GetCpuUsageInt() {
  const std::lock_guard lock(mutex_);
  const platform::SteadyTime now = clock_.Steady();
  OpenWhenDue(now);
  if (Reader* const reader = ReaderFor(now); reader != nullptr) {
    reader->sampled_at = now;
    last_ = reader->counter->Sample();
    TellWhether(last_.has_value());
  } else if (readers_.empty()) {
    TellWhether(false);
  }
  return last_.value_or(0);
}

std::chrono::milliseconds CPUInfo::UntilMeasured() {
  using std::chrono::milliseconds;
  const std::lock_guard lock(mutex_);
  const platform::SteadyTime now = clock_.Steady();
  OpenWhenDue(now);
  if (readers_.empty() || last_ || ReaderFor(now) != nullptr) return milliseconds(0);
  return std::max(milliseconds(0), std::chrono::ceil<milliseconds>(*opened_at_ + kLeastSpan - now));
}

int CPUInfo::GetCpuInformation(platform::Processors& processors, _SYSCPU_INFORMATION& info) {
  TVK::Log log;
  TVK::utility::InitLog(log, kLogFile, 4);
  info = {};
  platform::TopologyReading reading = processors.ReadTopology();
  for (int retry = 1; reading.supported && reading.error != 0 && retry <= kMostRetries; ++retry) {
    log.e(L"GetCpuInformation-GetLogicalProcessorInformation failed %d,retryCount=%d", reading.error, retry);
    reading = processors.ReadTopology();
  }
  if (!reading.supported) {
    log.e(L"GetLogicalProcessorInformation is not supported");
    return kNotSupported;
  }
  if (reading.error != 0) return reading.error;
  if (reading.returned_bytes < reading.entry_bytes) {
    log.e(
        L"GetCpuInformation-can't get cpuinfortion from GetLogicalProcessorInformation "
        L"returnLength=%d,sizeof(SYSTEM_LOGICAL_PROCESSOR_INFORMATION)=%d",
        reading.returned_bytes, reading.entry_bytes);
    return kNoEntries;
  }
  const platform::ProcessorTopology& topology = reading.topology;
  info = {.processor_name = String::UTF8ToUTF16(topology.name),
          .address_width = topology.address_width,
          .number_of_cores = topology.cores,
          .number_of_logical_processors = topology.logical_processors,
          .l2_cache_total = topology.l2.total_bytes,
          .l2_cache_count = topology.l2.count,
          .l3_cache_total = topology.l3.total_bytes,
          .l3_cache_count = topology.l3.count};
  return 0;
}
