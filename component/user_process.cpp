#include "component/user_process.h"

#include <algorithm>
#include <utility>

#include "client/log/guarded_thread.h"
#include "client/log/named_event.h"
#include "client/text/string.h"
#include "platform/files.h"

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

UserProcess::UserProcess(platform::Runtime& runtime, const std::filesystem::path& folder,
                         const std::filesystem::path& service, platform::SessionProgramStarter starter)
    : runtime_(runtime),
      program_(ProgramIn(folder, service)),
      starter_(std::move(starter)),
      news_(runtime.MakeEvent(platform::EventReset::kAuto)) {
  if (Exists()) utility::InitLog(log_, L"UserProcessAgent.log", 4);
}

UserProcess::~UserProcess() {
  StopUserProcess(0);
  {
    const std::lock_guard lock(mutex_);
    closing_ = true;
  }
  news_->Set();
  if (watch_.joinable()) runtime_.Join(watch_);
}

void UserProcess::SetDataSetEnable(bool enable) {
  log_.i(L"the display dataset is %s", enable ? L"enabled" : L"disabled");
  const std::lock_guard lock(mutex_);
  enabled_ = enable;
}

bool UserProcess::Runs() const {
  return process_ != nullptr && !process_->HasEnded();
}

bool UserProcess::Start(bool wait_for_user) {
  if (Runs()) return true;
  Forget();
  platform::NamedEventResult made =
      MakeNamedEvent(runtime_, log_, kStopEvent, platform::EventReset::kManual, platform::EventAccess::kServiceOnly);
  if (made.event == nullptr) {
    log_.e(L"%s cannot be made: error %d", kStopEvent, made.error);
    return false;
  }
  // Whoever held the event before us may have left it set, which would end the new process at once.
  made.event->Reset();
  platform::SessionProcessStart start = starter_(program_);
  if (start.process == nullptr) {
    log_.e(L"the user agent is not started: %s", String::UTF8ToUTF16(start.problem));
    return wait_for_user && start.nobody_logged_on;
  }
  log_.i(L"%s runs", kUserAgentProgram);
  process_ = std::move(start.process);
  stop_event_ = std::move(made.event);
  session_ = start.session;
  user_left_ = false;
  started_ = runtime_.clock().Steady();
  if (!watch_.joinable()) {
    // Without a thread it runs all the same, and is started again when it is next asked for.
    CallLogged(log_, L"UserProcess::Start",
               [this] { watch_ = StartGuardedThread(runtime_, log_, "tvk-useragent", [this] { Watch(); }); });
  }
  news_->Set();
  return true;
}

void UserProcess::Forget() {
  process_ = nullptr;
  stop_event_ = nullptr;
  due_ = std::nullopt;
}

void UserProcess::Watch() {
  for (;;) {
    Process process;
    std::optional<platform::SteadyTime> due;
    {
      const std::lock_guard lock(mutex_);
      if (closing_) return;
      process = process_;
      due = due_;
    }
    if (process != nullptr) {
      platform::Waitable* const objects[] = {news_.get(), &process->end()};
      if (runtime_.WaitAny(objects, platform::kForever) == 0) continue;
      const std::lock_guard lock(mutex_);
      if (process == process_) OnEnd();
    } else if (!due) {
      runtime_.Wait(*news_, platform::kForever);
    } else if (runtime_.WaitUntil(*news_, *due) == platform::kWaitTimeout) {
      const std::lock_guard lock(mutex_);
      if (due_ != due) continue;
      due_ = std::nullopt;
      bool started = false;
      CallLogged(log_, L"UserProcess::Watch", [&] { started = Start(true); });
      // Where nobody is logged on the next logon starts it; what else keeps it from starting may pass.
      if (!started) OnEnd();
    }
  }
}

void UserProcess::OnEnd() {
  const platform::SteadyTime now = runtime_.clock().Steady();
  const bool lived = process_ != nullptr && now - started_ >= kSoundLife;
  const bool told = stop_event_ != nullptr && runtime_.Wait(*stop_event_, std::chrono::milliseconds(0)) == 0;
  Forget();
  if (!enabled_ || !follows_logons_ || user_left_) return;
  if (lived) pause_ = kFirstPause;
  const std::chrono::seconds pause = told ? std::max(pause_, kSessionEnd) : pause_;
  log_.i(L"%s has ended; it is started again in %d s", kUserAgentProgram, static_cast<int>(pause.count()));
  due_ = now + pause;
  pause_ = std::min(pause_ * 2, kLongestPause);
}

bool UserProcess::StartUserProcess(platform::Event& stop_event, bool wait_for_user) {
  if (runtime_.Wait(stop_event, std::chrono::milliseconds(0)) == 0) {
    stop_event.Set();  // it is consumed by looking, and others wait for it
    return false;
  }
  const std::lock_guard lock(mutex_);
  if (!Start(wait_for_user)) return false;
  follows_logons_ = wait_for_user;
  return true;
}

bool UserProcess::UserProcessRuns() {
  const std::lock_guard lock(mutex_);
  return Runs();
}

void UserProcess::OnUserLogon() {
  const std::lock_guard lock(mutex_);
  // Not only the first time: the process ends with its user's session.
  if (!enabled_ || !follows_logons_) return;
  pause_ = kFirstPause;
  Start(true);
}

void UserProcess::OnSessionChange(const platform::SessionChange& change) {
  if (change.kind == platform::SessionChangeKind::kLogon) return OnUserLogon();
  if (change.kind != platform::SessionChangeKind::kLogoff) return;
  const std::lock_guard lock(mutex_);
  if (change.session != session_) return;
  user_left_ = true;
  due_ = std::nullopt;
}

void UserProcess::StopUserProcess(int reason) {
  Process process;
  {
    const std::lock_guard lock(mutex_);
    follows_logons_ = false;
    due_ = std::nullopt;
    if (process_ == nullptr) return;
    process = process_;
    stop_event_->Set();
  }
  if (runtime_.Wait(process->end(), kPatience) != 0) {
    log_.e(L"%s did not end by itself", kUserAgentProgram);
    process->Kill(static_cast<std::uint32_t>(reason));
    runtime_.Wait(process->end(), kPatience);
  }
  const std::lock_guard lock(mutex_);
  if (process_ == process) Forget();
}

}  // namespace TVK
