#include "component/user_process.h"

#include <utility>

#include "client/log/named_event.h"
#include "client/text/string.h"

using TVK::String;

namespace {

constexpr wchar_t kStopEvent[] = L"Global\\TvkUserAgentStopEvent";

}  // namespace

namespace TVK {

UserProcess::UserProcess(platform::Runtime& runtime, const std::filesystem::path& folder, Starter starter)
    : runtime_(runtime), program_(folder / kUserAgentProgram), starter_(std::move(starter)) {
  utility::InitLog(log_, L"UserProcessAgent.log", 4);
}

UserProcess::~UserProcess() {
  StopUserProcess(0);
}

void UserProcess::SetDataSetEnable(bool enable) {
  log_.i(L"the display dataset is %s", enable ? L"enabled" : L"disabled");
  const std::lock_guard lock(mutex_);
  enabled_ = enable;
}

bool UserProcess::Runs() const {
  return process_ != nullptr && !process_->WaitForEnd(std::chrono::milliseconds(0));
}

bool UserProcess::Start(bool wait_for_user) {
  if (Runs()) return true;
  process_ = nullptr;
  platform::NamedEventResult made =
      MakeNamedEvent(runtime_, log_, kStopEvent, platform::EventReset::kManual, platform::EventAccess::kSessionUsers);
  if (made.event == nullptr) {
    log_.e(L"%s cannot be made: error %d", kStopEvent, made.error);
    return false;
  }
  // Whoever held the event before us may have left it set, which would end the new process at once.
  made.event->Reset();
  platform::SessionProcessStart start = starter_(program_, {});
  if (start.process == nullptr) {
    log_.e(L"the user agent is not started: %s", String::UTF8ToUTF16(start.problem));
    return wait_for_user && start.nobody_logged_on;
  }
  log_.i(L"%s runs", kUserAgentProgram);
  process_ = std::move(start.process);
  stop_event_ = std::move(made.event);
  return true;
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
  if (enabled_ && follows_logons_) Start(true);
}

void UserProcess::OnSessionChange(const platform::SessionChange& change) {
  if (change.kind == platform::SessionChangeKind::kLogon) OnUserLogon();
}

void UserProcess::StopUserProcess(int reason) {
  const std::lock_guard lock(mutex_);
  follows_logons_ = false;
  if (process_ == nullptr) return;
  stop_event_->Set();
  if (!process_->WaitForEnd(kPatience)) {
    log_.e(L"%s did not end by itself", kUserAgentProgram);
    process_->Kill(static_cast<std::uint32_t>(reason));
    process_->WaitForEnd(kPatience);
  }
  process_ = nullptr;
  stop_event_ = nullptr;
}

}  // namespace TVK
