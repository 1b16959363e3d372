// Puts together what the sources know of the machine's batteries.
#pragma once

#include <list>
#include <mutex>
#include <optional>

#include "client/battery/battery_info.h"
#include "client/battery/source_faults.h"
#include "client/battery/source_lane.h"
#include "client/log/log.h"

class MachineInformation;

namespace platform {
class Batteries;
class PowerManager;
}  // namespace platform

/// Any thread; a lock serialises the readings, since the maker's software does not say that it bears two at once.
class BatteryInfoCollector {
 public:
  /// All four must outlive the object. Nothing is read before the first question.
  BatteryInfoCollector(platform::Runtime& runtime, platform::Batteries& batteries,
                       platform::PowerManager& power_manager, const MachineInformation& machine);
  BatteryInfoCollector(const BatteryInfoCollector&) = delete;
  BatteryInfoCollector& operator=(const BatteryInfoCollector&) = delete;
  ~BatteryInfoCollector() = default;

  /// One record a battery. The operating system's facts come first; the energy management driver, on machines of the
  /// brands that have it, the log files and the library of the power manager then fill what is still "UnKnown", in this
  /// order; but what the library tells of condition and firmware stands. A source that does not answer in time is left
  /// out and asked again when it has come back; after `stop`, which may be null, none is asked. Nothing when the
  /// operating system did not tell: then the batteries are not known, and not gone.
  std::optional<std::list<BatteryInfo>> GetBatteryInfoList(platform::Waitable* stop = nullptr);

 private:
  /// Whether the machine is of a brand whose batteries the energy-management driver knows.
  bool HasEmDriver() const;

  platform::Batteries& batteries_;
  platform::PowerManager& power_manager_;
  const MachineInformation& machine_;
  const TVK::Log log_;
  std::mutex mutex_;  ///< Held for a reading; guards what follows.
  TVK::SourceLane system_lane_;
  TVK::SourceLane driver_lane_;
  TVK::SourceLane library_lane_;
  TVK::SourceLane log_file_lane_;
  TVK::SourceFaults library_faults_;
  TVK::SourceFaults log_file_faults_;
};
