#include "monitors/system/cpu_info.h"

#include "client/text/string.h"

using TVK::String;

namespace {

constexpr int kMostRetries = 3;
// GetCpuInformation's own results, out of the way of the systems' error numbers.
constexpr int kNotSupported = -1;
constexpr int kNoEntries = -2;

}  // namespace

CPUInfo::CPUInfo(platform::Processors& processors) : processors_(processors) {
  TVK::utility::InitLog(log_, L"CpuEventMonitor.log", 4);
}

void CPUInfo::OpenCounter() {
  opened_ = true;
  platform::ProcessorLoadOpening opening = processors_.OpenUtility();
  if (opening.reader == nullptr) {
    log_.e(L"CPUInfo::InitPdhQuery failed %lld", opening.error);
    opening = processors_.OpenTime();
    if (opening.reader == nullptr) log_.e(L"CPUInfo::InitPdhQuery failed %lld", opening.error);
  }
  reader_ = std::move(opening.reader);
}

void CPUInfo::InitPdhQuery() {
  const std::lock_guard lock(mutex_);
  OpenCounter();
}

void CPUInfo::CleanUp() {
  const std::lock_guard lock(mutex_);
  reader_ = nullptr;
  opened_ = false;
}

int CPUInfo::GetCpuUsageInt() {
  const std::lock_guard lock(mutex_);
  if (!opened_) OpenCounter();
  if (reader_ == nullptr) return 0;
  return reader_->Sample().value_or(0);
}

int CPUInfo::GetCpuInformation(_SYSCPU_INFORMATION& info) {
  info = {};
  platform::TopologyReading reading = processors_.ReadTopology();
  for (int retry = 1; reading.supported && reading.error != 0 && retry <= kMostRetries; ++retry) {
    log_.e(L"GetCpuInformation-GetLogicalProcessorInformation failed %d,retryCount=%d", reading.error, retry);
    reading = processors_.ReadTopology();
  }
  if (!reading.supported) {
    log_.e(L"GetLogicalProcessorInformation is not supported");
    return kNotSupported;
  }
  if (reading.error != 0) return reading.error;
  if (reading.returned_bytes < reading.entry_bytes) {
    log_.e(
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
