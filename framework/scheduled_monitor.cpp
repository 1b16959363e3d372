#include "framework/scheduled_monitor.h"

#include <stdexcept>
#include <system_error>
#include <utility>

#include "client/log/guarded_thread.h"
#include "client/log/named_event.h"
#include "client/text/string.h"

namespace TVK {

ScheduledMonitor::ScheduledMonitor(const MonitorServices& monitor_services, const MonitorIdentity& identity,
                                   std::optional<ReportRule> report)
    : DatasetMonitor(monitor_services, identity),
      rule_(std::move(report).value_or(ReportRule())),
      report_(monitor_services.runtime, rule_.item, rule_.report, rule_.least_interval_ms) {
  if (rule_.report && !identity.items.contains(rule_.item)) {
    throw std::invalid_argument(
        String::UTF16ToUTF8(std::wstring(identity.row.name) + L": there is no item \"" + rule_.item + L"\" to report"));
  }
}

platform::Event* ScheduledMonitor::stop_event() const {
  const std::lock_guard lock(mutex_);
  return stop_event_.get();
}

bool ScheduledMonitor::MakeStopEvent(const wchar_t* caller, MonitorLine failure, const std::wstring& name) {
  const std::lock_guard lock(mutex_);
  if (stopping_) return false;
  std::int64_t error = 0;
  if (name.empty()) {
    try {
      stop_event_ = services().runtime.MakeEvent(platform::EventReset::kManual);
    } catch (const std::system_error& refusal) {
      error = refusal.code().value();
    }
  } else {
    platform::NamedEventResult made = MakeNamedEvent(services().runtime, log_, name, platform::EventReset::kManual,
                                                     platform::EventAccess::kServiceOnly);
    error = made.error;
    stop_event_ = std::move(made.event);
    if (stop_event_ != nullptr) stop_event_->Reset();  // an event of this name may be left from the run before
  }
  if (stop_event_ != nullptr) return true;
  log_.e(L"%s", failure.With({caller}, error));
  TellShortage(Shortage::kStart);
  return false;
}

void ScheduledMonitor::TellShortage(Shortage shortage) const {
  if (services().on_shortage) services().on_shortage(identity().row.id, shortage);
}

bool ScheduledMonitor::Pause(std::chrono::milliseconds time) const {
  platform::Event* const stop = stop_event();
  if (stop == nullptr) return !stopping_;
  return services().runtime.Wait(*stop, time) == platform::kWaitTimeout;
}

bool ScheduledMonitor::WaitForContextsOf(const DatasetRow& other, std::uint32_t timeout_ms) {
  const platform::NamedEventResult event =
      MakeNamedEvent(services().runtime, log_, DatasetContextEventName(other), platform::EventReset::kManual,
                     platform::EventAccess::kServiceOnly);
  platform::Waitable* const handles[] = {stop_event(), event.event.get()};
  return !WaitForDatasetContextLog(handles, timeout_ms, std::wstring(other.name));
}

void ScheduledMonitor::WatchSeconds(const std::string& name, const SecondTick::Look& look) {
  if (!services().second_tick.Watch(name, *stop_event(), look)) TellShortage(Shortage::kStart);
}

void ScheduledMonitor::StartThread(const std::string& name, std::function<void()> body, MonitorLine failure) {
  const std::lock_guard lock(mutex_);
  if (stopping_) return;
  try {
    threads_.push_back(StartGuardedThread(services().runtime, log_, name, std::move(body)));
  } catch (const std::system_error& refusal) {
    if (failure.empty()) {
      log_.e(L"%s: the thread %s cannot be started: error %d", std::wstring(identity().row.log),
             String::UTF8ToUTF16(name), refusal.code().value());
    } else {
      log_.e(L"%s", failure.With({}));
    }
    TellShortage(Shortage::kStart);
  }
}

void ScheduledMonitor::StopMonitor() {
  ResetContextEvent();
  report_.RequestStop();  // before anything is waited for
  std::list<std::thread> threads;
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    if (stop_event_ != nullptr) stop_event_->Set();
    threads.swap(threads_);
  }
  for (std::thread& thread : threads)
    services().runtime.Join(thread);
  report_.Stop();
}

void ScheduledMonitor::FollowSettings() {
  if (stopping_) return;
  follows_settings_ = true;
  ReadAndUpdateDatasetSettings();
}

void ScheduledMonitor::ReadAndUpdateDatasetSettings() {
  if (fixed_interval_ms_ != 0) ReportEvery(fixed_interval_ms_);
  if (!follows_settings_) return;
  const auto one_at_a_time = report_.LockForChange();
  if (!UpdateDatasetSettingsFromConfigPolicy(std::wstring(identity().row.id))) {
    log_.d(L"%s: No change in ReadUsageInterval", rule_.caller);
    return;
  }
  report_.Pause();
  const std::uint32_t interval = report_.interval();
  if (interval < rule_.least_interval_ms) {
    log_.e(L"%s", rule_.invalid_interval.With({rule_.caller}, interval));
    return;
  }
  if (!StartReports(interval)) TellShortage(Shortage::kSettings);
}

void ScheduledMonitor::ReportEvery(std::uint32_t interval_ms) {
  fixed_interval_ms_ = interval_ms;
  const auto one_at_a_time = report_.LockForChange();
  if (report_.SetInterval(interval_ms) && !StartReports(interval_ms)) TellShortage(Shortage::kSettings);
}

bool ScheduledMonitor::StartReports(std::uint32_t interval_ms) {
  const std::wstring dataset_id(identity().row.id);
  const std::wstring& item_id = identity().items.at(rule_.item);
  std::int64_t last = 0;
  ItemEvent event;
  if (!rule_.first_is_due || services().store.GetLastItemEventWithItemId(dataset_id, item_id, event) == 0) {
    getLastItemEventTimeStampWithFallback(dataset_id, item_id, last);
  }
  std::uint64_t delay = 0;
  isItemEventElapsed(last, static_cast<int>(interval_ms / 1000), delay);
  log_.d(L"%s: delay = %lld seconds", rule_.caller, delay);
  return report_.Start(delay);
}

void ScheduledMonitor::LogMistakes(const std::vector<SettingReading>& readings) const {
  for (const SettingReading& reading : readings) {
    if (reading.mistake) log_.e(L"%s: %s; in force: %s", reading.key, reading.reason, reading.value_in_force);
  }
}

bool ScheduledMonitor::TakeInterval(std::uint32_t interval_ms, const std::vector<SettingReading>& readings) {
  LogMistakes(readings);
  return report_.SetInterval(interval_ms);
}

}  // namespace TVK
