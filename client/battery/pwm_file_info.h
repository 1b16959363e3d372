// What the power manager's log files tell of a battery, and the parser of these files.
//
// A log file is UTF-8 text in lines. A line that has a "=" is a pair: what stands before the first "=" is its name,
// what stands behind it its data, one or more fields with commas between them; empty fields do not count. Blanks around
// names and fields are not part of them. Lines without "=" and names other than these are passed over:
//
//     Battery=1,SN0815          what follows is about battery number 1, the first; its serial number may be missing
//     FirstUseDate=2023-04-01   day of its first use
//     Usage=2024-05-31,120,812  from that day: charge cycles, at least 1, and hours awake on the battery
//
// So a log grows by lines at its end; of several usages the one of the latest day counts, of one day the last, of
// several dates of first use the earliest. A line of these names that is none of the above is left out and logged.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/battery/source_faults.h"

namespace platform {
class PowerManager;
struct PowerManagerLog;
}  // namespace platform

/// A value. What the files do not tell is absent.
struct PwmFileInfo {
  std::uint32_t battery_number = 0;  ///< From 1; 0: no battery's.
  std::wstring serial_number = {};   ///< In clear; empty: not told.
  std::optional<std::chrono::year_month_day> first_use_date = {};
  std::optional<std::chrono::year_month_day> usage_date = {};  ///< That of the next two.
  std::optional<std::uint32_t> cycle_count = {};               ///< At least 1.
  std::optional<std::uint32_t> usage_hours = {};

  /// Joins what a later line or file tells of the same battery.
  void Add(const PwmFileInfo& later);

  bool operator==(const PwmFileInfo&) const = default;
};

/// Reads the log files. One thread at a time.
class PwmFileTool {
 public:
  /// The range of sizes that are read, in bytes: what is larger is no such log, which grows by some lines a day.
  static constexpr std::uint64_t kLeastFileBytes = 1;
  static constexpr std::uint64_t kMostFileBytes = 1 << 20;

  /// `faults` takes what is wrong with the files, and must outlive the object. No line holds anything of their texts
  /// and names.
  explicit PwmFileTool(TVK::SourceFaults& faults) : faults_(faults) {}

  /// What each file tells of each battery, in the order of the files. Files whose size is out of range are left out and
  /// are faults; a refusal of the logged-on user's rights is one.
  std::vector<PwmFileInfo> GetPwmFileInfoList(platform::PowerManager& power_manager);

  /// What one file tells, a battery at a time, in the order of their first lines; of at most 16 batteries. Takes time
  /// in proportion to the text. Only the first line of each kind is a fault.
  std::vector<PwmFileInfo> GetPwmFileInfo(const platform::PowerManagerLog& file);

 private:
  /// A fault of a file that `line` tells apart from its others.
  void AddFault(const platform::PowerManagerLog& file, const std::wstring& line);

  TVK::SourceFaults& faults_;
};
