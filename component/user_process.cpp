#include "component/user_process.h"

#include <algorithm>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <thread>
#include <utility>

#include "client/log/guarded_thread.h"
#include "client/log/log.h"
#include "client/log/named_event.h"
#include "client/log/service_logs.h"
#include "client/text/string.h"
#include "platform/files.h"
#include "platform/system_event.h"

using TVK::String;

namespace {

constexpr wchar_t kStopEvent[] = L"Global\\TvkUserAgentStopEvent";

platform::SessionProgram ProgramIn(const std::filesystem::path& folder, const std::filesystem::path& service) {
  platform::SessionProgram program{folder / TVK::kUserAgentProgram, {}, kStopEvent};
  if (!service.empty()) program.arguments = {L"--service", String::UTF8ToUTF16(platform::PathToUtf8(service))};
  return program;
}

}  // namespace

namespace TVK {

/// What UserProcess is, and its thread.
class UserProcess::Watcher final : public std::enable_shared_from_this<Watcher> {
 public:
  Watcher(platform::Runtime& runtime, const std::filesystem::path& folder, const std::filesystem::path& service,
          std::unique_ptr<platform::UserSessions> sessions);

  bool Exists() const { return sessions_ != nullptr; }
  void SetDataSetEnable(bool enable);
  bool StartUserProcess(platform::Event& stop_event);
  bool UserProcessRuns();
  void StopUserProcess(int reason);
  void OnUserLogon();
  void OnSessionChange(const platform::SessionChange& change);
  bool RunsIn(std::uint32_t session);
  /// The end: from its return on the thread uses no runtime. Once, by the owner.
  void Close();

 private:
  using Process = std::shared_ptr<platform::SessionProcess>;
  using Lock = std::unique_lock<std::mutex>;

  // With mutex_ held.
  bool Runs() const;
  /// Whether it is to run.
  bool IsWanted() const { return enabled_ && follows_logons_; }
  void LookAgain(std::chrono::milliseconds pause);
  void LookAgainLater();  ///< After a pause that grows.
  /// Has the process end, by force when it takes too long; what comes behind that is OnEnd's.
  void TellToEnd();
  void Forget();
  void LogOnce(const std::wstring& problem);

  // On the watching thread. `lock`, of mutex_, is held, and let go while the system is asked.
  /// Calls `ask`, which may take any time, without the lock; false when it threw, which is logged, and once the object
  /// is closing: then nobody waits, and the runtime may be gone.
  template <typename Ask>
  bool AskSystem(Lock& lock, const wchar_t* name, Ask&& ask);
  /// Whether none can be started beside others: what a former service left has yet to end, and is told to, or another
  /// service has its own. It is looked again then. True, too, when none is wanted any more.
  bool IsOccupied(Lock& lock);
  /// Starts it; that it cannot be is logged once, and tried again.
  void Start(Lock& lock);
  /// Sees to it that it runs where the user is.
  void Look(Lock& lock);
  void OnEnd(Lock& lock);  ///< Of the process.
  void OnDue(Lock& lock);
  void Watch();  ///< Its body.

  platform::Runtime& runtime_;
  const platform::SessionProgram program_;
  const std::unique_ptr<platform::UserSessions> sessions_;
  Log log_;
  const std::unique_ptr<platform::Event> news_;     ///< For the watching thread: something below changed.
  const std::unique_ptr<platform::Event> settled_;  ///< Manual; clear while the system is asked.
  std::mutex mutex_;  ///< Guards what follows; not held while the system is asked or an end is waited for.
  bool enabled_ = false;
  bool follows_logons_ = false;  ///< To be started again, and where the user is.
  bool closing_ = false;
  std::unique_ptr<platform::Event> stop_event_;  ///< Held while a process runs: the process opens it by its name.
  Process process_;
  std::uint32_t session_ = 0;     ///< Of the process that was started last.
  platform::SteadyTime started_;  ///< Of that process.
  bool ends_ = false;             ///< We told it to end, to be started in another session or not to be.
  std::set<std::uint32_t> left_;  ///< Sessions whose users logged off; at most kMostLeft.
  std::chrono::seconds pause_ = kFirstPause;
  int looks_for_user_ = 0;                            ///< That are left.
  bool alone_ = false;                                ///< What a former service left has ended, or is left alone.
  std::optional<platform::SteadyTime> former_until_;  ///< The end of the patience with it, once it was seen.
  std::wstring logged_;                               ///< Why it could not be started, as last logged.
  std::optional<platform::SteadyTime> due_;  ///< The next look, or when the patience with one that ends is over.
  std::thread watch_;
};

UserProcess::Watcher::Watcher(platform::Runtime& runtime, const std::filesystem::path& folder,
                              const std::filesystem::path& service, std::unique_ptr<platform::UserSessions> sessions)
    : runtime_(runtime),
      program_(ProgramIn(folder, service)),
      sessions_(std::move(sessions)),
      news_(runtime.MakeEvent(platform::EventReset::kAuto)),
      settled_(runtime.MakeEvent(platform::EventReset::kManual)) {
  settled_->Set();
  if (Exists()) utility::InitLog(log_, ServiceLog(L"UserProcessAgent.log"), 4);
}

void UserProcess::Watcher::Close() {
  StopUserProcess(0);
  {
    const std::lock_guard lock(mutex_);
    closing_ = true;
  }
  if (!watch_.joinable()) return;
  news_->Set();
  // No question begins from here on. One that does not end must not hold up the end of the service.
  if (runtime_.Wait(*settled_, kPatience) == 0) return runtime_.Join(watch_);
  log_.e(L"the system does not answer; %s is no longer waited for", kUserAgentProgram);
  watch_.detach();
}

void UserProcess::Watcher::SetDataSetEnable(bool enable) {
  log_.i(L"the display dataset is %s", enable ? L"enabled" : L"disabled");
  const std::lock_guard lock(mutex_);
  enabled_ = enable;
}

bool UserProcess::Watcher::Runs() const {
  return process_ != nullptr && !process_->HasEnded();
}

void UserProcess::Watcher::LogOnce(const std::wstring& problem) {
  if (problem != logged_) log_.e(L"%s", problem);
  logged_ = problem;
}

void UserProcess::Watcher::LookAgainLater() {
  LookAgain(pause_);
  pause_ = std::min(pause_ * 2, kLongestPause);
}

void UserProcess::Watcher::LookAgain(std::chrono::milliseconds pause) {
  if (!IsWanted() || ends_) return;  // one that ends is looked for anew behind its end
  const platform::SteadyTime at = runtime_.clock().Steady() + pause;
  due_ = std::min(due_.value_or(at), at);
  news_->Set();
}

template <typename Ask>
bool UserProcess::Watcher::AskSystem(Lock& lock, const wchar_t* name, Ask&& ask) {
  if (closing_) return false;
  settled_->Reset();
  lock.unlock();
  const bool asked = CallLogged(log_, name, ask);
  lock.lock();
  settled_->Set();
  return asked && !closing_;
}

bool UserProcess::Watcher::IsOccupied(Lock& lock) {
  // Before the first start alone: whoever holds it later, and is none of ours, would be ended again and again.
  if (alone_) return false;
  std::unique_ptr<platform::Event> held;
  bool other_service = false;
  const bool asked = AskSystem(lock, L"UserProcess::IsOccupied", [&] {
    held = runtime_.OpenNamedEvent(kStopEvent).event;
    other_service = held != nullptr && sessions_->ServiceRunsElsewhere(kServiceProgram);
  });
  if (!IsWanted()) return true;
  if (!asked || other_service) {
    if (other_service) LogOnce(L"another service runs here, and has user agents of its own: none is started");
    LookAgainLater();
    return true;
  }
  const platform::SteadyTime now = runtime_.clock().Steady();
  if (held != nullptr && !former_until_) former_until_ = now + kFormerPatience;
  alone_ = held == nullptr || now >= *former_until_;
  if (alone_) {
    pause_ = kFirstPause;  // another service is over
    return false;
  }
  held->Set();
  LogOnce(L"a user agent of a service before this one is there still; it is told to end");
  LookAgain(kFirstPause);
  return true;
}

void UserProcess::Watcher::Start(Lock& lock) {
  Forget();
  if (IsOccupied(lock)) return;
  platform::NamedEventResult made =
      runtime_.MakeNamedEvent(kStopEvent, platform::EventReset::kManual, false, platform::EventAccess::kServiceOnly);
  if (made.event == nullptr) {
    LogOnce(made.error == platform::kErrorForeignOwner
                ? ForeignEventProblem(kStopEvent)
                : std::wstring(kStopEvent) + L" cannot be made: error " + std::to_wstring(made.error));
    LookAgainLater();
    return;
  }
  // Whoever held the event before us may have left it set, which would end the new process at once.
  made.event->Reset();
  const std::set<std::uint32_t> left = left_;
  platform::SessionProcessStart start;
  AskSystem(lock, L"UserProcess::Start", [&] { start = sessions_->Start(program_, left); });
  if (closing_) {
    if (start.process != nullptr) start.process->Kill(0);
    return;
  }
  if (start.process == nullptr) {
    LogOnce(L"the user agent is not started: " + String::UTF8ToUTF16(start.problem));
    if (!start.nobody_logged_on || looks_for_user_-- > 0) LookAgainLater();
    return;
  }
  log_.i(L"%s runs", kUserAgentProgram);
  logged_.clear();
  process_ = std::move(start.process);
  stop_event_ = std::move(made.event);
  session_ = start.session;
  started_ = runtime_.clock().Steady();
  if (!IsWanted()) TellToEnd();  // who stopped it may not have waited for it
}

void UserProcess::Watcher::Look(Lock& lock) {
  if (!IsWanted()) return;
  if (!Runs()) return Start(lock);
  const std::set<std::uint32_t> left = left_;
  std::optional<std::uint32_t> session;
  if (!AskSystem(lock, L"UserProcess::Look", [&] { session = sessions_->Find(left); })) return;
  if (!Runs() || !IsWanted()) return;
  if (!session) {
    if (looks_for_user_-- > 0) LookAgainLater();
  } else if (*session != session_) {
    log_.i(L"%s moves to session %d", kUserAgentProgram, *session);
    TellToEnd();
  }
}

void UserProcess::Watcher::TellToEnd() {
  ends_ = true;
  stop_event_->Set();
  due_ = runtime_.clock().Steady() + kPatience;
  news_->Set();
}

void UserProcess::Watcher::Forget() {
  process_ = nullptr;
  stop_event_ = nullptr;
  ends_ = false;
  due_ = std::nullopt;
}

void UserProcess::Watcher::Watch() {
  for (;;) {
    Process process;
    std::optional<platform::SteadyTime> due;
    {
      const std::lock_guard lock(mutex_);
      if (closing_) return;
      process = process_;
      due = due_;
    }
    platform::Waitable* const objects[] = {news_.get(), process == nullptr ? nullptr : &process->end()};
    const std::span watched(objects, process == nullptr ? 1 : 2);
    const auto left = due ? std::max(std::chrono::ceil<std::chrono::milliseconds>(*due - runtime_.clock().Steady()),
                                     std::chrono::milliseconds(0))
                          : platform::kForever;
    const platform::WaitCode code = runtime_.WaitAny(watched, left);
    if (code == 0) continue;
    if (code == platform::kWaitFailed) {
      log_.e(L"UserProcess::Watch: the wait failed");
      runtime_.Wait(*news_, kLongestPause);
      continue;
    }
    const bool done = CallLogged(log_, L"UserProcess::Watch", [&] {
      Lock lock(mutex_);
      if (code == 1 && process == process_) OnEnd(lock);
      if (code == platform::kWaitTimeout && due == due_) OnDue(lock);
    });
    const std::lock_guard lock(mutex_);
    if (!done && !Runs()) LookAgainLater();
  }
}

void UserProcess::Watcher::OnDue(Lock& lock) {
  due_ = std::nullopt;
  if (!ends_) return Look(lock);
  log_.e(L"%s did not end by itself", kUserAgentProgram);
  due_ = runtime_.clock().Steady() + kLongestPause;  // of one that cannot be killed, either
  process_->Kill(1);
}

void UserProcess::Watcher::OnEnd(Lock& lock) {
  const bool lived = runtime_.clock().Steady() - started_ >= kSoundLife;
  const bool told = runtime_.Wait(*stop_event_, std::chrono::milliseconds(0)) == 0;
  const bool by_us = ends_;
  Forget();
  if (!IsWanted()) return;
  if (by_us) return Start(lock);
  if (lived) pause_ = kFirstPause;
  const std::chrono::seconds pause = told ? kSessionEnd : pause_;
  log_.i(L"%s has ended; it is started again in %d s", kUserAgentProgram, static_cast<int>(pause.count()));
  if (told) return LookAgain(pause);
  LookAgainLater();
}

bool UserProcess::Watcher::StartUserProcess(platform::Event& stop_event) {
  if (runtime_.Wait(stop_event, std::chrono::milliseconds(0)) == 0) {
    stop_event.Set();  // it is consumed by looking, and others wait for it
    return false;
  }
  const std::lock_guard lock(mutex_);
  if (!watch_.joinable()) {
    const bool watched = CallLogged(log_, L"UserProcess::StartUserProcess", [this] {
      watch_ = StartGuardedThread(runtime_, log_, "tvk-useragent", [self = shared_from_this()] { self->Watch(); });
    });
    if (!watched) return false;
  }
  follows_logons_ = true;
  looks_for_user_ = kLooksForUser;
  if (!Runs()) LookAgain(std::chrono::milliseconds(0));
  return true;
}

bool UserProcess::Watcher::UserProcessRuns() {
  const std::lock_guard lock(mutex_);
  return Runs();
}

void UserProcess::Watcher::OnUserLogon() {
  const std::lock_guard lock(mutex_);
  pause_ = kFirstPause;
  looks_for_user_ = kLooksForUser;
  LookAgain(std::chrono::milliseconds(0));
}

void UserProcess::Watcher::OnSessionChange(const platform::SessionChange& change) {
  using Kind = platform::SessionChangeKind;
  if (change.kind == Kind::kConsoleDisconnect) return;  // the session that takes its place is told, too
  if (change.kind == Kind::kLogon || change.kind == Kind::kLogoff) {
    const std::lock_guard lock(mutex_);
    if (change.kind == Kind::kLogoff) {
      left_.insert(change.session);                              // another user may be there
      if (left_.size() > kMostLeft) left_.erase(left_.begin());  // the numbers grow: the oldest
      return;
    }
    left_.erase(change.session);
  }
  OnUserLogon();
}

bool UserProcess::Watcher::RunsIn(std::uint32_t session) {
  const std::lock_guard lock(mutex_);
  return Runs() && session_ == session;
}

void UserProcess::Watcher::StopUserProcess(int reason) {
  Process process;
  {
    Lock lock(mutex_);
    follows_logons_ = false;
    if (process_ == nullptr) {
      due_ = std::nullopt;
      lock.unlock();
      if (runtime_.Wait(*settled_, kPatience) != 0) {
        log_.e(L"the system does not begin %s; it is ended as soon as it does", kUserAgentProgram);
      }
      lock.lock();
    }
    if (process_ == nullptr) return;
    process = process_;
    stop_event_->Set();
    ends_ = false;  // its end is waited for here
    due_ = std::nullopt;
  }
  if (runtime_.Wait(process->end(), kPatience) != 0) {
    log_.e(L"%s did not end by itself", kUserAgentProgram);
    process->Kill(static_cast<std::uint32_t>(reason));
    runtime_.Wait(process->end(), kPatience);
  }
  const std::lock_guard lock(mutex_);
  if (process_ != process) return;
  if (process->HasEnded()) return Forget();
  // None is started beside one that cannot be killed.
  ends_ = true;
  due_ = runtime_.clock().Steady() + kLongestPause;
  news_->Set();
}

UserProcess::UserProcess(platform::Runtime& runtime, const std::filesystem::path& folder,
                         const std::filesystem::path& service, std::unique_ptr<platform::UserSessions> sessions)
    : watcher_(std::make_shared<Watcher>(runtime, folder, service, std::move(sessions))) {}

UserProcess::~UserProcess() {
  watcher_->Close();
}

bool UserProcess::Exists() const {
  return watcher_->Exists();
}
void UserProcess::SetDataSetEnable(bool enable) {
  watcher_->SetDataSetEnable(enable);
}
bool UserProcess::StartUserProcess(platform::Event& stop_event) {
  return watcher_->StartUserProcess(stop_event);
}
bool UserProcess::UserProcessRuns() {
  return watcher_->UserProcessRuns();
}
void UserProcess::StopUserProcess(int reason) {
  watcher_->StopUserProcess(reason);
}
void UserProcess::OnUserLogon() {
  watcher_->OnUserLogon();
}
void UserProcess::OnSessionChange(const platform::SessionChange& change) {
  watcher_->OnSessionChange(change);
}
bool UserProcess::RunsIn(std::uint32_t session) {
  return watcher_->RunsIn(session);
}

}  // namespace TVK
