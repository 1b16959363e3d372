#include "host/event_window.h"

#include <algorithm>
#include <utility>

#include "client/log/guarded_thread.h"
#include "core/user_process_agent.h"

namespace {

constexpr std::chrono::milliseconds kWatchDelay(500);
constexpr std::chrono::milliseconds kWatchPeriod(2000);
constexpr int kCloseTries = 5;
constexpr std::chrono::milliseconds kCloseRetry(200);

TVK::DatasetTable SessionDatasets() {
  std::vector<TVK::Dataset> datasets;
  datasets.push_back({TVK::kDisplayRow});
  datasets.push_back({TVK::kPenRow});
  return TVK::DatasetTable(std::move(datasets));
}

}  // namespace

TVK::Log& EventWindow::ModuleLog() {
  static TVK::Log log;
  return log;
}

EventWindow::EventWindow(Parts parts)
    : parts_(std::move(parts)),
      datasets_(SessionDatasets()),
      log_(ModuleLog()),
      exiting_(parts_.runtime.MakeEvent(platform::EventReset::kManual)) {
  if (TVK::utility::InitLog(log_, L"EventWindow.log", 4)) log_.d(L"CreateEventWindow");
}

void EventWindow::Create() {
  if (!Init()) return;
  WaitExit();
  _hStopEvent = nullptr;
  const std::lock_guard lock(mutex_);
  _displayUserAgent = nullptr;
  pen_monitor_ = nullptr;
}

bool EventWindow::Init() {
  if (_hStopEvent != nullptr) return true;
  platform::NamedEventResult opened = parts_.desktop.OpenSessionEvent(kStopEvent, platform::EventRights::kAll);
  if (opened.event == nullptr) {
    log_.e(L"EventWindow Init OpenEvent %s return error %d!", kStopEvent, opened.error);
    return false;
  }
  if (parts_.runtime.Wait(*opened.event, std::chrono::milliseconds(0)) == 0) return false;
  if (parts_.config_policy_agent == nullptr) {
    log_.e(L"EventWindow Init: _configPolicyAgent is NULL!");
  } else if (!OnTelemetryPolicyChange(this)) {
    return false;
  }
  _hStopEvent = std::move(opened.event);
  const bool started = TVK::CallLogged(log_, L"EventWindow Init", [this] {
    log_.d(L"EventWindow Init new MessageWindow thread");
    _messageWindowThread = TVK::StartGuardedThread(parts_.runtime, log_, "tvk-window", [this] { MessageWindow(); });
    log_.d(L"EventWindow Init new WaitParentProcessExitThread thread");
    _waitParentProcessExitThread =
        TVK::StartGuardedThread(parts_.runtime, log_, "tvk-parent", [this] { WaitParentProcessExitThread(this); });
  });
  if (started) return true;
  _hStopEvent->Set();
  WaitExit();
  return false;
}

void EventWindow::Pause(std::chrono::milliseconds time) {
  parts_.runtime.Wait(*exiting_, time);
}

void EventWindow::WaitExit() {
  if (_waitParentProcessExitThread.joinable()) {
    parts_.runtime.Join(_waitParentProcessExitThread);
    log_.d(L"EventWindow WaitExit WaitParentProcessExitThread thread exit");
  }
  std::thread policy_thread;
  {
    // The window's first message, should it come now, starts no thread any more.
    const std::lock_guard lock(policy_thread_mutex_);
    policy_thread_running_ = false;
    exiting_->Set();
    policy_thread = std::move(_configPolicyMonitorThread);
  }
  if (policy_thread.joinable()) {
    parts_.runtime.Join(policy_thread);
    log_.d(L"EventWindow WaitExit ConfigPolicyMonitorThread thread exit");
  }
  if (!_messageWindowThread.joinable()) return;
  const auto between = parts_.runtime.MakeEvent(platform::EventReset::kManual);  // never set
  for (int i = 0; i < kCloseTries && !parts_.desktop.CloseWindow(kWindowName); ++i)
    parts_.runtime.Wait(*between, kCloseRetry);
  parts_.runtime.Join(_messageWindowThread);
  if (const std::uint32_t error = parts_.desktop.ForgetWindowClass(kWindowName); error != 0) {
    log_.e(L"EventWindow WaitExit UnregisterClass() return fail! error: %d", error);
  }
  log_.d(L"EventWindow WaitExit MessageWindow thread exit");
}

int EventWindow::MessageWindow() {
  log_.d(L"EventWindow MessageWindow thread start...");
  const auto answer = [this](const platform::WindowMessage& message) {
    std::optional<std::intptr_t> result = 0;
    TVK::CallLogged(log_, L"EventWindow::WndProc", [&] { result = WndProc(this, message); });
    return result;
  };
  const std::optional<int> ended = parts_.desktop.RunWindow(kWindowName, answer);
  if (!ended) {
    log_.e(L"EventWindow MessageWindow InitWindowInstance() return fail!");
    return -1;
  }
  // Whoever closed the window wants the process to end, which nothing else would tell its other threads.
  _hStopEvent->Set();
  return *ended;
}

void EventWindow::WaitParentProcessExitThread(EventWindow* pEventWindow) {
  const TVK::Log& log = ModuleLog();
  log.d(L"EventWindow WaitParentProcessExitThread thread start...");
  if (pEventWindow == nullptr) {
    log.e(L"EventWindow WaitParentProcessExitThread: pEventWindow is NULL! thread exit!");
    return;
  }
  platform::Event* const stop = pEventWindow->_hStopEvent.get();
  if (stop == nullptr) {
    log.e(L"EventWindow WaitParentProcessExitThread: _hStopEvent is NULL! thread exit!");
    return;
  }
  platform::Runtime& runtime = pEventWindow->parts_.runtime;
  if (runtime.Wait(*stop, std::chrono::milliseconds(0)) == 0) return;
  runtime.Wait(*stop, kWatchDelay);
  while (runtime.Wait(*stop, kWatchPeriod) != 0) {
    if (pEventWindow->parts_.tidy) pEventWindow->parts_.tidy();
    // One that was started again since tells this agent itself to end.
    if (pEventWindow->parts_.desktop.ServiceRuns(TVK::kServiceProgram, kStopEvent)) continue;
    stop->Set();
    log.d(L"EventWindow WaitParentProcessExitThread: Found that the %s process had exited", TVK::kServiceProgram);
    return;
  }
  log.d(L"EventWindow WaitParentProcessExitThread: stop event is found, WaitParentProcessExitThread exit");
}
