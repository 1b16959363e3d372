// The battery dataset: the machine's batteries, when it is plugged in and unplugged, when a battery comes near full or
// near empty, and their wear once an interval.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "client/battery/battery_info.h"
#include "framework/one_shot_timer.h"
#include "framework/scheduled_monitor.h"
#include "monitors/devices/battery_settings.h"
#include "platform/power.h"

/// See EventMonitorBase for who calls what. One dataset context for each battery. StartMonitor returns once the wishes
/// to be told of changes are registered and the usage report runs; at rest no thread of it but that report's is there.
///
/// News of the power source is told on the client's bus at once and recorded 40 seconds later. A battery that took
/// another one's place is described before anything of it is recorded. What a look records comes from one reading, its
/// dataset contexts too. What fails at the start is logged and made up for by the next look, as far as it can be;
/// nothing ends the monitor but its stop.
class BatteryEventMonitor final : public TVK::ScheduledMonitor {
 public:
  static constexpr const TVK::DatasetRow& kRow = TVK::DatasetRowNamed(L"BatteryEvent");
  inline static const std::wstring dataset_id{kRow.id};
  inline static const std::wstring dataset_name{kRow.name};
  inline static const std::wstring telemtry_scope_supported{kRow.scopes};
  inline static const std::wstring regexForReadUsageInterval = L"^\\d+(ms|s|m|h|d)$";
  static const std::map<std::wstring, std::wstring> ITEM_EVENT_CONTEXT;  ///< Item name to item id.

  /// More batteries than this are not understood, and nothing is recorded of any of them.
  static constexpr std::size_t BATTERY_MAX_NUMBER = 2;
  /// How long after news of the power source, and of the charge, the batteries are looked at; the same news anew puts
  /// it off: systems tell of one plug some times.
  static constexpr std::chrono::seconds kSourceSettles{40};
  static constexpr std::chrono::seconds kChargeSettles{1};

  explicit BatteryEventMonitor(const TVK::MonitorServices& services);

  void StartMonitor(std::wstring name) override;
  void StopMonitor() override;
  void OnSystemEvent(const platform::SystemEvent& event) override;
  void ReadAndUpdateDatasetSettings() override;

  /// The report of one interval; on the timer's thread.
  void ReadBatteryUsagePerInterval();
  /// Looks at the batteries for the timer that is due; on its thread.
  void DelayTimerCallback(const TVK::OneShotTimer* timer);
  /// Writes an item event of the battery; see DatasetMonitor::WriteItem.
  int LogItemEvent(const std::wstring& event_name, const BatteryInfo& battery);

 protected:
  bool UpdateThrottleParameters(std::map<std::wstring, std::wstring>& settings) override;
  std::optional<std::vector<TVK::DescribedDevice>> Describe() override;
  /// Sources come and go (log files with the user who is logged on): a fact that is only not told now is no change.
  bool IsSameDescription(const ItemData& stored, const ItemData& facts) const override;
  /// A battery that is put into its slot again, known by its serial number.
  bool IsEarlierDescription(const ItemData& stored, const ItemData& facts) const override;

 private:
  enum Timer : std::size_t { kAcConnected, kAcDisconnected, kChargePercentage, kTimers };
  /// What a battery may report once. A battery that is away keeps it.
  struct Latches {
    std::wstring serial_number;  ///< Hashed; empty as long as it was not told.
    bool bIsNeedReportNearFull = true;
    bool bIsNeedReportNearEmpty = true;
  };

  class HandedReading;

  void DescribeAtStart();
  void MakeTimers();
  void RegisterNotifications();
  void OnPowerSource(platform::PowerSource source);
  void Arm(Timer timer, std::chrono::seconds delay);
  /// Begins what was armed and refused a thread. With mutex_ held.
  void RetryLocked();
  std::optional<Timer> IndexOf(const TVK::OneShotTimer* timer);

  /// Nothing when they are not known, and when they are too many, with the line.
  std::optional<std::list<BatteryInfo>> ReadBatteries(TVK::MonitorLine too_many);
  /// Reads the batteries, describes them anew where they are others than before, and runs `record` on them. With
  /// round_mutex_ held.
  void Look(TVK::MonitorLine too_many, const std::function<void(const std::list<BatteryInfo>&)>& record);
  void DescribeAnew(const std::list<BatteryInfo>& list);
  /// What the timer is for, of each battery.
  void Record(Timer timer, const std::list<BatteryInfo>& list);
  /// Another battery in a place has its reports before it. With mutex_ held.
  void FollowExchanges(const std::vector<TVK::DescribedDevice>& devices);
  /// What one battery's charge asks for.
  void CheckCharge(std::size_t index, const BatteryInfo& battery, const platform::PowerStatus& status);
  void LogRemainingTime(std::size_t index, const BatteryInfo& battery) const;
  bool IsNearFull(std::optional<std::int64_t> charge, const platform::PowerStatus& status);
  bool IsNearEmpty(std::optional<std::int64_t> charge, const platform::PowerStatus& status);
  Latches LatchesOf(const BatteryInfo& battery);
  void SetLatch(const BatteryInfo& battery, bool Latches::*latch, bool value);
  /// With mutex_ held.
  void SetAllLatches();

  std::mutex round_mutex_;  ///< Held while the batteries are looked at and recorded; taken before all others.
  bool init_due_ = true;    ///< They were not described yet, so none got its device-initialisation. Guarded by it.

  std::mutex mutex_;                                                ///< Guards what follows; held for a look.
  std::array<std::unique_ptr<TVK::OneShotTimer>, kTimers> timers_;  ///< Between StartMonitor and StopMonitor.
  bool ended_ = false;
  std::array<std::shared_ptr<platform::CHPowerNotifyHandle>, 2> notifications_;
  /// What the machine ran on as the monitor started, or was told to run on first, as long as nothing else was told:
  /// systems begin with the present state, which is no change.
  std::optional<platform::PowerSource> source_at_start_;
  bool source_told_ = false;
  TVK::BatterySettings settings_;
  std::map<std::wstring, Latches> latches_;                     ///< By the battery's id.
  std::optional<std::vector<TVK::DescribedDevice>> described_;  ///< The batteries that were described last.
  const std::list<BatteryInfo>* reading_ = nullptr;             ///< That of the look that goes on.
};
