// The collector of the CPU dataset.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "client/log/log.h"
#include "platform/clock.h"
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
  /// The least span over which a utilisation means something: the systems account the processors' time by ticks of
  /// 10 ms (Linux) and 15.6 ms (Windows).
  static constexpr std::chrono::milliseconds kLeastSpan{100};
  /// After this long, a counter that gives nothing is opened anew.
  static constexpr std::chrono::minutes kPatience{5};

  /// Both must outlive the object. Nothing is opened before the first sample.
  CPUInfo(platform::Processors& processors, const platform::Clock& clock);
  CPUInfo(const CPUInfo&) = delete;
  CPUInfo& operator=(const CPUInfo&) = delete;

  /// Utilisation in percent up to now, since the youngest of the six last samples that is kLeastSpan old; above 100 on
  /// a processor that runs above its nominal frequency. Where none is so old, the last value again. 0 when nothing was
  /// measured yet and when it cannot be read; the log says when that begins and when it ends.
  virtual int GetCpuUsageInt();
  /// Opens the counter: "% Processor Utility", or "% Processor Time" where the system lacks that. Failures are logged;
  /// samples open it again after kPatience.
  virtual void InitPdhQuery();
  virtual void CleanUp();
  virtual ~CPUInfo() = default;

  /// How long until GetCpuUsageInt has measured something; opens the counter. 0 also where that fails.
  std::chrono::milliseconds UntilMeasured();

  /// 0 on success; otherwise the system's error, `info` then is all zero. A failure is tried again up to three times.
  static int GetCpuInformation(platform::Processors& processors, _SYSCPU_INFORMATION& info);

 private:
  struct Reader {
    std::unique_ptr<platform::ProcessorLoadReader> counter;
    platform::SteadyTime sampled_at;  ///< Or opened.
  };

  // All with mutex_ held.
  void Open(platform::SteadyTime now);
  void OpenWhenDue(platform::SteadyTime now);
  /// The reader whose next sample covers the least span that means something; null when there is none.
  Reader* ReaderFor(platform::SteadyTime now);
  void TellWhether(bool readable);

  platform::Processors& processors_;
  const platform::Clock& clock_;
  TVK::Log log_;
  std::mutex mutex_;  ///< Guards what follows.
  /// A counter measures from its own sample before. With as many of them as a peak check takes samples, each of these
  /// covers a span of its own, however fast they follow each other.
  std::vector<Reader> readers_;
  std::optional<platform::SteadyTime> opened_at_;
  std::optional<std::int32_t> last_;
  bool readable_ = true;  ///< As the log has it.
};
