// The collector of the CPU dataset.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "client/log/log.h"
#include "platform/processors.h"

/// Static facts of the processors.
struct _SYSCPU_INFORMATION {        // NOLINT(*-reserved-identifier,cert-dcl*): the record's established name
  std::wstring processor_name;      ///< Empty when the machine does not tell.
  std::uint32_t address_width = 0;  ///< Bits.
  std::uint32_t number_of_cores = 0;
  std::uint32_t number_of_logical_processors = 0;
  std::uint64_t l2_cache_total = 0;  ///< Bytes, of all L2 caches together: they differ in size on hybrid processors.
  std::uint32_t l2_cache_count = 0;
  std::uint64_t l3_cache_total = 0;  ///< Bytes, of all L3 caches together.
  std::uint32_t l3_cache_count = 0;
};

/// Reads utilisation and facts of the processors. Any thread; a lock serialises the samples.
class CPUInfo {
 public:
  /// `processors` must outlive the object. Nothing is opened before the first sample.
  explicit CPUInfo(platform::Processors& processors);
  CPUInfo(const CPUInfo&) = delete;
  CPUInfo& operator=(const CPUInfo&) = delete;

  /// Utilisation in percent since the previous sample of anybody; above 100 on a processor that runs above its nominal
  /// frequency. 0 when it cannot be read.
  virtual int GetCpuUsageInt();
  /// Opens the counter: "% Processor Utility", or "% Processor Time" where the system lacks that. Failures are logged,
  /// and samples are 0 until CleanUp and another try.
  virtual void InitPdhQuery();
  virtual void CleanUp();
  virtual ~CPUInfo() = default;

  /// 0 on success; otherwise the system's error, `info` then is all zero. A failure is tried again up to three times.
  int GetCpuInformation(_SYSCPU_INFORMATION& info);

 private:
  void OpenCounter();  // with mutex_ held

  platform::Processors& processors_;
  TVK::Log log_;
  std::mutex mutex_;  ///< Guards what follows.
  std::unique_ptr<platform::ProcessorLoadReader> reader_;
  bool opened_ = false;
};
