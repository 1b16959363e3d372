// The dataset of how the system's event logs stand: what they took in a day, how full they are, how far they reach
// back.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "framework/scheduled_monitor.h"

/// See EventMonitorBase for who calls what. StartMonitor returns when the reports run; the first comes at once, the
/// others a day behind the one before. Numbers alone are recorded, by who logged the events, their ids and levels. What
/// was logged while the consent was withdrawn is not counted later.
class EventViewerLogDBEventMonitor final : public TVK::ScheduledMonitor {
 public:
  static constexpr const TVK::DatasetRow& kRow = TVK::DatasetRowNamed(L"EventViewerLogDBEvent");
  inline static const std::wstring dataset_id{kRow.id};
  inline static const std::wstring dataset_name{kRow.name};
  inline static const std::wstring telemtry_scope_supported{kRow.scopes};
  /// Item name to item id.
  static const std::map<std::wstring, std::wstring> ITEM_EVENT_CONTEXT;

  /// Of the counts of a channel, the largest; what else there was is one number.
  static constexpr std::size_t kMostCounts = 200;

  explicit EventViewerLogDBEventMonitor(const TVK::MonitorServices& services);

  void StartMonitor(std::wstring name) override;
  void StopMonitor() override;

  /// The report of a day: an item for each channel; on the timer's thread.
  void ReadLogDBPerDay();

 protected:
  std::optional<std::vector<TVK::DescribedDevice>> Describe() override;

 private:
  /// The oldest event that may be counted, milliseconds ago, at most a day; nothing when the store cannot tell.
  std::optional<std::uint64_t> Window();
  /// Tries again for as long as the store cannot tell; nothing when the stop came first.
  std::optional<std::uint64_t> AwaitWindow();

  // Those of StartMonitor, then of the timer's thread, which it starts.
  std::int64_t started_ = 0;           ///< The first second, since 1970, that is told where the consent is new.
  std::optional<std::int64_t> begin_;  ///< What was logged before this second is not counted; absent while not known.
};
