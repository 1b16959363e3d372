#include "core/monitor_entry.h"

#include <algorithm>
#include <utility>

#include "client/log/guarded_thread.h"
#include "client/text/string.h"

namespace TVK {

MonitorEntry::MonitorEntry(platform::Runtime& runtime, const Log& log, const Dataset& dataset,
                           const MonitorServices& services, std::function<void(const std::string& reason)> on_failure)
    : runtime_(runtime),
      log_(log),
      row_(dataset.row),
      on_failure_(std::move(on_failure)),
      monitor_(dataset.factory(services)),
      idle_(runtime.MakeEvent(platform::EventReset::kAuto)) {}

bool MonitorEntry::IsListed() const {
  const std::lock_guard lock(mutex_);
  return state_ == State::kListed;
}

bool MonitorEntry::IsStarted() const {
  const std::lock_guard lock(mutex_);
  return started_;
}

bool MonitorEntry::HasFailed() const {
  const std::lock_guard lock(mutex_);
  return failed_;
}

bool MonitorEntry::LacksAtStart() const {
  const std::lock_guard lock(mutex_);
  return lacks_at_start_;
}

void MonitorEntry::NoteShortage(Shortage shortage) {
  const std::lock_guard lock(mutex_);
  shortage_ = std::max(shortage_, shortage);
  if (shortage == Shortage::kStart) lacks_at_start_ = true;
}

Shortage MonitorEntry::TakeShortage() {
  const std::lock_guard lock(mutex_);
  return std::exchange(shortage_, Shortage::kNone);
}

std::optional<platform::WallTime> MonitorEntry::started_at() const {
  const std::lock_guard lock(mutex_);
  return started_at_;
}

bool MonitorEntry::Start(const wchar_t* caller) {
  const std::lock_guard lock(mutex_);
  if (started_) return true;
  if (state_ != State::kListed) return false;
  started_ = TVK::CallLogged(log_, {caller, row_.name}, [&] {
    thread_ = StartGuardedThread(runtime_, log_, "tvk-monitor", [this] { RunMonitor(); });
  });
  lacks_at_start_ = !started_;
  if (started_) started_at_ = runtime_.clock().Now();
  return started_;
}

void MonitorEntry::RunMonitor() {
  const auto end = [this](bool failed) {
    const std::lock_guard lock(mutex_);
    returned_ = true;
    failed_ = failed;
  };
  try {
    monitor_->Initialize();
    monitor_->StartMonitor(L"test");
    end(false);
    return;
  } catch (const std::exception& failure) {
    end(true);
    OnFailure(FailureText(failure));
  } catch (...) {
    end(true);
    OnFailure("unknown exception");
  }
}

void MonitorEntry::OnFailure(const std::string& reason) {
  log_.e(L"EventManager EventMonitor Initalize or startMonitor error! %s", String::UTF8ToUTF16(reason));
  on_failure_(reason);
}

bool MonitorEntry::JoinIfReturned() {
  std::thread thread;
  {
    const std::lock_guard lock(mutex_);
    if (!returned_) return false;
    thread = std::move(thread_);
  }
  return Join(std::move(thread));
}

bool MonitorEntry::Join(std::thread thread) {
  if (!thread.joinable()) return false;
  runtime_.Join(thread);
  return true;
}

void MonitorEntry::CallLogged(const wchar_t* caller, const std::function<void(EventMonitorBase&)>& call) {
  TVK::CallLogged(log_, {caller, row_.name}, [&] { call(*monitor_); });
}

void MonitorEntry::Call(const wchar_t* caller, const std::function<void(EventMonitorBase&)>& call) {
  {
    const std::lock_guard lock(mutex_);
    if (state_ != State::kListed) return;
    ++calls_;
  }
  CallLogged(caller, call);
  const std::lock_guard lock(mutex_);
  if (--calls_ == 0 && state_ == State::kStopping) idle_->Set();
}

void MonitorEntry::MarkLeaving() {
  const std::lock_guard lock(mutex_);
  if (state_ == State::kListed) state_ = State::kLeaving;
}

bool MonitorEntry::ClaimStop() {
  const std::lock_guard lock(mutex_);
  return std::exchange(state_, State::kStopping) != State::kStopping;
}

void MonitorEntry::StopMonitor() {
  constexpr wchar_t kCaller[] = L"EventManager::Stop";
  CallLogged(kCaller, [](EventMonitorBase& monitor) { monitor.StopMonitor(); });
  const auto busy = [&] {
    const std::lock_guard lock(mutex_);
    return calls_ > 0;
  };
  while (busy())
    runtime_.Wait(*idle_, platform::kForever);
  CallLogged(kCaller, [](EventMonitorBase& monitor) { monitor.UnInitialize(); });
}

void MonitorEntry::JoinAndDelete() {
  std::thread thread;
  {
    const std::lock_guard lock(mutex_);
    thread = std::move(thread_);
  }
  Join(std::move(thread));
  monitor_ = nullptr;
}

}  // namespace TVK
