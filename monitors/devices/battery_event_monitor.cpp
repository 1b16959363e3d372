#include "monitors/devices/battery_event_monitor.h"

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <system_error>
#include <utility>

#include "client/battery/battery_item_data.h"
#include "client/log/guarded_thread.h"
#include "platform/machine.h"
#include "platform/system_event.h"

namespace {

constexpr wchar_t kConnect[] = L"ConnectToAC";
constexpr wchar_t kDisconnect[] = L"DisconnectFromAC";
constexpr wchar_t kNearEmpty[] = L"BatteryNearEmpty";
constexpr wchar_t kNearFull[] = L"BatteryNearFull";
constexpr wchar_t kUsage[] = L"BatteryUsagePerInterval";
constexpr wchar_t kCharging[] = L"1";
constexpr wchar_t kDischarging[] = L"0";

constexpr TVK::MonitorLine kTooManyToDescribe =
    L"BatteryEventMonitor LogDatasetContext batteryInfoList.size() > BATTERY_MAX_NUMBER(%d)!";

constexpr TVK::MonitorLines kLines = {
    .context_decision =
        L"BatteryEventMonitor LogDatasetContext bIsNeedNewDatasetContext is %s, "
        L"bIsNeedToLogDatasetContextOnChange is %s.",
    .context_failure = L"BatteryEventMonitor LogDatasetContext LogDatasetContext() return error: %d",
    .init_failure = L"Battery LogDevInitEvent failed",
    .item_failure = L"BatteryEventMonitor LogItemEvent(%s) return error: %d",
    .no_context =
        L"BatteryEventMonitor LogItemEvent(%s) Battery Id: \"%s\" can NOT be found in "
        L"batteryDatasetContextIdMap!",
};

const wchar_t* BoolText(bool value) {
  return value ? L"true" : L"false";
}

/// Nothing for "UnKnown".
std::optional<std::int64_t> NumberOf(const std::wstring& text) {
  wchar_t* end = nullptr;
  const long long number = std::wcstoll(text.c_str(), &end, 10);
  if (end == text.c_str()) return std::nullopt;
  return number;
}

/// The system's flags of all batteries, as Windows' SYSTEM_POWER_STATUS writes them.
int FlagOf(const platform::PowerStatus& status) {
  constexpr int kNoBattery = 128;
  constexpr int kUnknown = 255;
  constexpr int kChargingFlag = 8;
  if (!status.has_battery) return kUnknown;
  if (!*status.has_battery) return kNoBattery;
  const int charging = status.charging ? kChargingFlag : 0;
  if (!status.level) return charging;
  switch (*status.level) {
    case platform::ChargeLevel::kHigh:
      return charging + 1;
    case platform::ChargeLevel::kLow:
      return charging + 2;
    case platform::ChargeLevel::kCritical:
      break;
  }
  return charging + 4;
}

std::vector<TVK::DescribedDevice> DevicesOf(const std::list<BatteryInfo>& list) {
  std::vector<TVK::DescribedDevice> devices;
  std::ranges::transform(list, std::back_inserter(devices), [](const BatteryInfo& battery) {
    return TVK::DescribedDevice{.key = battery.batteryId(), .facts = TVK::BatteryContextItemData(battery)};
  });
  return devices;
}

}  // namespace

/// Hands the reading of a look on to whatever describes the batteries meanwhile.
class BatteryEventMonitor::HandedReading {
 public:
  HandedReading(BatteryEventMonitor& monitor, const std::list<BatteryInfo>& list) : monitor_(monitor) { Set(&list); }
  ~HandedReading() { Set(nullptr); }
  HandedReading(const HandedReading&) = delete;
  HandedReading& operator=(const HandedReading&) = delete;

 private:
  void Set(const std::list<BatteryInfo>* list) {
    const std::lock_guard lock(monitor_.mutex_);
    monitor_.reading_ = list;
  }

  BatteryEventMonitor& monitor_;
};

const std::map<std::wstring, std::wstring> BatteryEventMonitor::ITEM_EVENT_CONTEXT = {
    {kConnect, L"A68BB488-41D1-4AAF-951A-E65DE79FB7BD"},       {kDisconnect, L"1787D44D-3EA3-450A-8D20-E29EAC58DAFE"},
    {kNearEmpty, L"EE60660E-9688-4C53-86B5-1FA36C26A019"},     {kNearFull, L"B1457E42-F597-471B-9754-D503D8AA1EDE"},
    {L"BatteryTest", L"00000000-0000-0000-0000-000000000000"},  // a reserved name; nothing writes it
    {kUsage, L"C9B0FCB6-C5CC-4565-8B5A-51D61B5080A9"},
};

BatteryEventMonitor::BatteryEventMonitor(const TVK::MonitorServices& monitor_services)
    : ScheduledMonitor(monitor_services, {kRow, ITEM_EVENT_CONTEXT, kLines},
                       TVK::ReportRule{.item = kUsage,
                                       .report = [this] { ReadBatteryUsagePerInterval(); },
                                       .caller = L"BatteryEventMonitor::ReadAndUpdateDatasetSettings"}) {}

void BatteryEventMonitor::StartMonitor(std::wstring /*name*/) {
  // Without the event a reading that hangs at the stop is waited for as long as at any time.
  if (!MakeStopEvent(L"", L"BatteryEventMonitor StartMonitor CreateEvent() return error %d!") && stopping()) return;
  TVK::CallLogged(log_, L"BatteryEventMonitor LogDatasetContext", [&] { DescribeAtStart(); });
  MakeTimers();
  TVK::CallLogged(log_, L"BatteryEventMonitor RegisterNotifications", [&] { RegisterNotifications(); });
  TVK::CallLogged(log_, L"BatteryEventMonitor ReadAndUpdateDatasetSettings", [&] { FollowSettings(); });
  // What the batteries hold as the service starts is told by no change.
  if (!stopping()) Arm(kChargePercentage, kChargeSettles);
}

void BatteryEventMonitor::DescribeAtStart() {
  const std::lock_guard round(round_mutex_);
  if (Admits()) {
    Look(kTooManyToDescribe, [](const std::list<BatteryInfo>&) {});
    return;
  }
  // Both are owed until there is consent.
  LogDatasetContext(false);
  InitialiseDevice();
  init_due_ = false;
}

void BatteryEventMonitor::StopMonitor() {
  ScheduledMonitor::StopMonitor();
  // They end, and wait for what runs, when the lock is free.
  std::array<std::shared_ptr<platform::CHPowerNotifyHandle>, 2> notifications;
  std::array<std::unique_ptr<TVK::OneShotTimer>, kTimers> timers;
  const std::lock_guard lock(mutex_);
  ended_ = true;
  timers.swap(timers_);
  notifications.swap(notifications_);
}

void BatteryEventMonitor::MakeTimers() {
  bool refused = false;
  std::unique_lock lock(mutex_);
  if (ended_) return;
  for (std::size_t i = 0; i < kTimers; ++i) {
    try {
      timers_[i] = std::make_unique<TVK::OneShotTimer>(services().runtime, "tvk-battery", [this, i] {
        std::unique_lock look(mutex_);
        const TVK::OneShotTimer* const timer = timers_[i].get();
        look.unlock();
        DelayTimerCallback(timer);
      });
    } catch (const std::system_error& refusal) {
      log_.e(L"BatteryEventMonitor StartMonitor CreateThreadpoolTimer %d return error: %d", i, refusal.code().value());
      refused = true;
    }
  }
  lock.unlock();
  if (refused) TellShortage(TVK::Shortage::kStart);
}

void BatteryEventMonitor::RegisterNotifications() {
  if (Admits()) {
    const auto source = services().machine.power().ReadStatus().source;
    const std::lock_guard lock(mutex_);
    if (!source_told_) source_at_start_ = source;
  }
  const auto wish = [&](platform::PowerSetting setting) {
    return services().machine.power().Register(setting, services().manager.get_svrHandle());
  };
  std::array notifications = {wish(platform::PowerSetting::kPowerSource),
                              wish(platform::PowerSetting::kBatteryPercent)};
  if (!notifications[0]) log_.e(L"BatteryEventMonitor StartMonitor Register GUID_ACDC_POWER_SOURCE fail!");
  if (!notifications[1]) log_.e(L"BatteryEventMonitor StartMonitor Register GUID_BATTERY_PERCENTAGE_REMAINING fail!");
  const std::lock_guard lock(mutex_);
  if (!ended_) notifications_.swap(notifications);
}

void BatteryEventMonitor::OnSystemEvent(const platform::SystemEvent& event) {
  if (const auto* const source = std::get_if<platform::PowerSource>(&event)) OnPowerSource(*source);
  if (std::holds_alternative<platform::BatteryPercent>(event)) Arm(kChargePercentage, kChargeSettles);
}

void BatteryEventMonitor::OnPowerSource(platform::PowerSource source) {
  using platform::PowerSource;
  services().news.Publish(TVKNotificationData(TVK::kPowerSourceTopic,
                                              source == PowerSource::kAc ? TVK::kRunsOnAc : TVK::kRunsOnOther, L""));
  {
    const std::lock_guard lock(mutex_);
    // The first news of a source that was not known is not known to be a change.
    if (!std::exchange(source_told_, true) && !source_at_start_) source_at_start_ = source;
    if (source_at_start_ == source) return;
    source_at_start_.reset();
  }
  if (source == PowerSource::kAc) Arm(kAcConnected, kSourceSettles);
  if (source == PowerSource::kBattery) Arm(kAcDisconnected, kSourceSettles);
}

void BatteryEventMonitor::Arm(Timer timer, std::chrono::seconds delay) {
  const std::lock_guard lock(mutex_);
  if (timers_[timer] == nullptr) return;
  // First what was refused a thread before: a plug that was pulled and is in again must not be told the other way
  // round.
  RetryLocked();
  if (!timers_[timer]->Arm(delay)) TellShortage(TVK::Shortage::kSettings);
}

void BatteryEventMonitor::RetryLocked() {
  for (const auto& timer : timers_) {
    if (timer != nullptr && !timer->Retry()) TellShortage(TVK::Shortage::kSettings);
  }
}

void BatteryEventMonitor::ReadAndUpdateDatasetSettings() {
  ScheduledMonitor::ReadAndUpdateDatasetSettings();
  const std::lock_guard lock(mutex_);
  RetryLocked();
}

std::optional<BatteryEventMonitor::Timer> BatteryEventMonitor::IndexOf(const TVK::OneShotTimer* timer) {
  const std::lock_guard lock(mutex_);
  for (std::size_t i = 0; timer != nullptr && i < kTimers; ++i) {
    if (timers_[i].get() == timer) return static_cast<Timer>(i);
  }
  return std::nullopt;
}

void BatteryEventMonitor::DelayTimerCallback(const TVK::OneShotTimer* timer) {
  const std::lock_guard round(round_mutex_);
  const std::optional<Timer> index = IndexOf(timer);
  if (!index) {  // it fell due while the monitor stopped
    log_.d(L"BatteryEventMonitor DelayTimerCallback pTimer(%p) is invalid!", timer);
    return;
  }
  if (!Admits()) return;
  Look(L"BatteryEventMonitor DelayTimerCallback batteryInfoList.size() > BATTERY_MAX_NUMBER(%d)!",
       [&](const std::list<BatteryInfo>& list) { Record(*index, list); });
}

void BatteryEventMonitor::Record(Timer timer, const std::list<BatteryInfo>& list) {
  platform::PowerStatus status;
  if (timer == kChargePercentage) {
    status = services().machine.power().ReadStatus();
    log_.d(L"%s: ACLineStatus=%d, BatteryFlag=%d, BatteryLifePercent=%d", L"BatteryEventMonitor::DelayTimerCallback",
           status.source ? static_cast<int>(status.source == platform::PowerSource::kAc) : 255, FlagOf(status),
           status.percent.value_or(255));
  }
  std::size_t i = 0;
  for (const BatteryInfo& battery : list) {
    if (stopping()) return;
    if (timer == kAcConnected) {
      LogItemEvent(kConnect, battery);
      SetLatch(battery, &Latches::bIsNeedReportNearFull, true);
    } else if (timer == kAcDisconnected) {
      LogItemEvent(kDisconnect, battery);
      SetLatch(battery, &Latches::bIsNeedReportNearEmpty, true);
    } else {
      CheckCharge(i, battery, status);
    }
    LogRemainingTime(i, battery);
    ++i;
  }
}

void BatteryEventMonitor::CheckCharge(std::size_t index, const BatteryInfo& battery,
                                      const platform::PowerStatus& status) {
  const auto charge = NumberOf(battery.batteryBatteryChargeRemaining());
  const Latches before = LatchesOf(battery);
  if (battery.batteryChargeStatus() == kCharging && IsNearFull(charge, status) && before.bIsNeedReportNearFull &&
      LogItemEvent(kNearFull, battery) == 0) {
    SetLatch(battery, &Latches::bIsNeedReportNearFull, false);
  }
  if (battery.batteryChargeStatus() == kDischarging && IsNearEmpty(charge, status) && before.bIsNeedReportNearEmpty &&
      LogItemEvent(kNearEmpty, battery) == 0) {
    SetLatch(battery, &Latches::bIsNeedReportNearEmpty, false);
  }
  const Latches after = LatchesOf(battery);
  log_.d(
      L"BatteryEventMonitor DelayTimerCallback batteryChargeRemaining: %d%%, isAcOn: %s, bIsNeedReportNearFull[%d]: "
      L"%d, bIsNeedReportNearEmpty[%d]: %d",
      charge.value_or(-1), BoolText(status.source == platform::PowerSource::kAc), index, after.bIsNeedReportNearFull,
      index, after.bIsNeedReportNearEmpty);
}

bool BatteryEventMonitor::IsNearFull(std::optional<std::int64_t> charge, const platform::PowerStatus& status) {
  const std::lock_guard lock(mutex_);
  if (settings_.full_threshold) return charge && *charge >= *settings_.full_threshold;
  return status.level == platform::ChargeLevel::kHigh;
}

bool BatteryEventMonitor::IsNearEmpty(std::optional<std::int64_t> charge, const platform::PowerStatus& status) {
  const std::lock_guard lock(mutex_);
  if (settings_.low_threshold) return charge && *charge <= *settings_.low_threshold;
  return !status.charging &&
         (status.level == platform::ChargeLevel::kLow || status.level == platform::ChargeLevel::kCritical);
}

BatteryEventMonitor::Latches BatteryEventMonitor::LatchesOf(const BatteryInfo& battery) {
  const std::lock_guard lock(mutex_);
  return latches_[battery.batteryId()];
}

void BatteryEventMonitor::SetLatch(const BatteryInfo& battery, bool Latches::*latch, bool value) {
  const std::lock_guard lock(mutex_);
  latches_[battery.batteryId()].*latch = value;
}

void BatteryEventMonitor::SetAllLatches() {
  for (auto& [id, latches] : latches_)
    latches = {.serial_number = std::move(latches.serial_number)};
}

void BatteryEventMonitor::FollowExchanges(const std::vector<TVK::DescribedDevice>& devices) {
  for (const TVK::DescribedDevice& device : devices) {
    const auto number = device.facts.find(L"SerialNumber");
    if (number == device.facts.end()) continue;
    Latches& latches = latches_[device.key];
    if (!latches.serial_number.empty() && latches.serial_number != number->second) latches = {};
    latches.serial_number = number->second;
  }
}

void BatteryEventMonitor::LogRemainingTime(std::size_t index, const BatteryInfo& battery) const {
  const auto seconds = NumberOf(battery.batteryRemainingTime());
  const bool fills = battery.batteryChargeStatus() == kCharging;
  // Of one that does neither it would be no time to anything.
  if (!seconds || (!fills && battery.batteryChargeStatus() != kDischarging)) return;
  constexpr std::int64_t kHour = 3600;
  const std::int64_t hours = *seconds / kHour;
  const std::int64_t minutes = *seconds % kHour / 60;
  if (hours > 0 && fills) {
    log_.d(L"BatteryEventMonitor DelayTimerCallback battery(%d) takes %02d:%02d to fill up", index, hours, minutes);
  } else if (hours > 0) {
    log_.d(L"BatteryEventMonitor DelayTimerCallback battery(%d) can be used for %02d:%02d", index, hours, minutes);
  } else if (fills) {
    log_.d(L"BatteryEventMonitor DelayTimerCallback battery(%d) takes %02d minutes to fill up", index, minutes);
  } else {
    log_.d(L"BatteryEventMonitor DelayTimerCallback battery(%d) can be used for %02d minutes", index, minutes);
  }
}

void BatteryEventMonitor::ReadBatteryUsagePerInterval() {
  const std::lock_guard round(round_mutex_);
  if (!Admits()) return;
  Look(L"BatteryEventMonitor ReadBatteryUsagePerInterval batteryInfoList.size() > BATTERY_MAX_NUMBER(%d)!",
       [&](const std::list<BatteryInfo>& list) {
         for (const BatteryInfo& battery : list) {
           if (stopping()) return;
           LogItemEvent(kUsage, battery);
         }
       });
}

std::optional<std::list<BatteryInfo>> BatteryEventMonitor::ReadBatteries(TVK::MonitorLine too_many) {
  auto list = services().batteries.GetBatteryInfoList(stop_event());
  if (!list || list->size() <= BATTERY_MAX_NUMBER) return list;
  log_.e(L"%s", too_many.With({}, BATTERY_MAX_NUMBER));
  return std::nullopt;
}

void BatteryEventMonitor::Look(TVK::MonitorLine too_many,
                               const std::function<void(const std::list<BatteryInfo>&)>& record) {
  const auto list = ReadBatteries(too_many);
  if (!list || stopping()) return;  // a stop may have cut the reading short
  const HandedReading handed(*this, *list);
  DescribeAnew(*list);
  record(*list);
}

void BatteryEventMonitor::DescribeAnew(const std::list<BatteryInfo>& list) {
  const std::vector<TVK::DescribedDevice> devices = DevicesOf(list);
  bool same = false;
  {
    const std::lock_guard lock(mutex_);
    same = described_ == devices;
    FollowExchanges(devices);
  }
  // Another description may have been made while a battery was away, and its context be gone.
  if (same && std::ranges::all_of(devices, [&](const auto& device) { return HasContext(device.key); })) return;
  LogDatasetContext(false);
  if (init_due_) InitialiseDevice();
  init_due_ = false;
  const std::lock_guard lock(mutex_);
  described_ = devices;  // not before: what threw is to be tried again
}

std::optional<std::vector<TVK::DescribedDevice>> BatteryEventMonitor::Describe() {
  std::optional<std::list<BatteryInfo>> list;
  {
    const std::lock_guard lock(mutex_);
    if (reading_ != nullptr) list = *reading_;
  }
  if (!list) list = ReadBatteries(kTooManyToDescribe);
  if (!list) return std::nullopt;
  for (const BatteryInfo& battery : *list) {
    log_.d(
        L"BatteryEventMonitor LogDatasetContext SerialNumber:\"%s\", DeviceName:\"%s\", Manufacturer:\"%s\", "
        L"FirstUseDate:\"%s\", Id:\"%s\", Chemistry:\"%s\", Hwid:\"%s\", FwVersion:\"%s\", "
        L"DesignChargeCapacity:\"%s\"mWh, ManufactureDate:\"%s\", ValidWarranty:\"%s\", Warranty:\"%s\"",
        BatteryInfo::GetHashedString(battery.batterySerialNumber()), battery.batteryDeviceName(),
        battery.batteryManufactureName(), battery.batteryFirstUseDate(), battery.batteryId(),
        battery.batteryChemistry(), battery.batteryHwid(), battery.batteryFwVersion(),
        battery.batteryDesignChargeCapacity(), battery.batteryManufactureDate(), battery.batteryValidWarranty(),
        battery.batteryWarranty());
  }
  return DevicesOf(*list);
}

bool BatteryEventMonitor::IsSameDescription(const ItemData& stored, const ItemData& facts) const {
  return std::ranges::all_of(facts, [&](const auto& fact) {
    const auto known = stored.find(fact.first);
    return known != stored.end() && known->second == fact.second;
  });
}

bool BatteryEventMonitor::IsEarlierDescription(const ItemData& stored, const ItemData& facts) const {
  return facts.contains(L"SerialNumber") && IsSameDescription(stored, facts);
}

int BatteryEventMonitor::LogItemEvent(const std::wstring& event_name, const BatteryInfo& battery) {
  log_.d(
      L"BatteryEventMonitor LogItemEvent EventName:\"%s\", BatteryId:\"%s\", ChargeStatus:\"%s\", AC/DC mode:\"%s\", "
      L"BatteryChargeRemaining:\"%s\"%%, RemainingCapacity:\"%s\"mWh, FullChargeCapacity:\"%s\"mWh, "
      L"CycleCount:\"%s\", RemainingTime:\"%s\" seconds, TotalChargedCapacity:\"%s\"Wh, TotalBatteryAwakeHrs:\"%s\", "
      L"HoursAtFullCharge:\"%s\", HoursAtHighTemp:\"%s\", HoursAtFullChargeAndHighTemp:\"%s\", Condition:\"%s\"",
      event_name, battery.batteryId(), battery.batteryChargeStatus(), battery.batteryAcDcMode(),
      battery.batteryBatteryChargeRemaining(), battery.batteryRemainingCapacity(), battery.batteryFullChargeCapacity(),
      battery.batteryCycleCount(), battery.batteryRemainingTime(), battery.batteryTotalChargedCapacity(),
      battery.batteryTotalBatteryAwakeHrs(), battery.batteryHoursAtFullCharge(), battery.batteryHoursAtHighTemp(),
      battery.batteryHoursAtFullChargeAndHighTemp(), battery.batteryCondition());
  return WriteItem(event_name, TVK::BatteryItemData(battery), battery.batteryId());
}

bool BatteryEventMonitor::UpdateThrottleParameters(std::map<std::wstring, std::wstring>& settings) {
  const TVK::BatterySettings fresh = TVK::ReadBatterySettings(settings);
  constexpr wchar_t kCaller[] = L"BatteryEventMonitor::UpdateThrottleParameters";
  std::vector<TVK::SettingReading> others;
  for (const TVK::SettingReading& reading : fresh.readings) {
    if (reading.mistake && reading.key == L"BatteryLowThreshold") {
      log_.e(L"%s: Exception while reading BatteryLowThreshold, %s; in force: %s", kCaller, reading.reason,
             reading.value_in_force);
    } else if (reading.mistake && reading.key == L"BatteryFullThreshold") {
      log_.e(L"%s: Exception while reading BatteryFullThreshold, %s; in force: %s", kCaller, reading.reason,
             reading.value_in_force);
    } else {
      others.push_back(reading);
    }
  }
  const bool changed = TakeInterval(fresh.read_usage_interval_ms, others);
  {
    const std::lock_guard lock(mutex_);
    settings_ = fresh;
    if (changed && fresh.read_usage_interval_ms >= TVK::IntervalReport::kLeastInterval) SetAllLatches();
  }
  log_.d(
      L"%s: ReadUsageInterval = %llu, batteryLowThreshold = %d, batteryFullThreshold = %d, bReadUsageIntervalChanged "
      L"= %d",
      kCaller, fresh.read_usage_interval_ms, fresh.low_threshold.value_or(0), fresh.full_threshold.value_or(0),
      changed);
  return changed;
}
