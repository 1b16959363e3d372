#include "framework/interval_report.h"

#include <system_error>
#include <utility>

#include "client/log/service_logs.h"
#include "client/text/string.h"

namespace TVK {

IntervalReport::IntervalReport(platform::Runtime& runtime, std::wstring name, std::function<void()> report,
                               std::uint32_t least_interval)
    : runtime_(runtime), name_(std::move(name)), report_(std::move(report)), least_interval_(least_interval) {
  utility::InitLog(log_, ServiceLog(L"TimerThread.log"), 4);
}

IntervalReport::~IntervalReport() {
  Stop();
}

std::uint32_t IntervalReport::interval() const {
  const std::lock_guard lock(mutex_);
  return interval_;
}

bool IntervalReport::SetInterval(std::uint32_t milliseconds) {
  const std::lock_guard lock(mutex_);
  const bool changed = std::exchange(interval_, milliseconds) != milliseconds;
  const bool missing = timer_ == nullptr && interval_ >= least_interval_ && !stopped_;
  return changed || missing;
}

std::optional<platform::ElapsedTime> IntervalReport::Due() const {
  const std::lock_guard lock(mutex_);
  if (timer_ == nullptr || timer_->due() == platform::ElapsedTime()) return std::nullopt;
  return timer_->due();
}

void IntervalReport::Pause() {
  const std::lock_guard lock(mutex_);
  PauseLocked();
}

void IntervalReport::PauseLocked() {
  paused_.remove_if([](const auto& timer) { return timer->ended(); });
  if (timer_ == nullptr) return;
  timer_->RequestStop();
  paused_.push_back(std::move(timer_));
}

bool IntervalReport::Start(std::uint64_t first_delay_seconds) {
  const std::lock_guard lock(mutex_);
  if (stopped_) return true;
  PauseLocked();
  try {
    timer_ = std::make_unique<Timer>(
        runtime_, interval_ / 1000, name_, [this](const std::wstring&) { report_(); }, first_delay_seconds);
  } catch (const std::system_error& failure) {
    log_.e(L"%s: cannot be started: %s", name_, String::UTF8ToUTF16(failure.what()));
    return false;
  }
  return true;
}

void IntervalReport::RequestStop() {
  const std::lock_guard lock(mutex_);
  stopped_ = true;
  PauseLocked();
}

void IntervalReport::Stop() {
  RequestStop();
  std::list<std::unique_ptr<Timer>> paused;
  {
    const std::lock_guard lock(mutex_);
    paused.swap(paused_);
  }
}

std::uint32_t ReadUsageInterval(const std::wstring& pattern, const SettingTexts& settings, SettingReading& reading) {
  const IntervalSetting setting{L"ReadUsageInterval",           pattern,    0,
                                IntervalReport::kLeastInterval, UINT32_MAX, L"period of the usage report"};
  return static_cast<std::uint32_t>(setting.ReadAlsoShorter(settings, reading));
}

}  // namespace TVK
