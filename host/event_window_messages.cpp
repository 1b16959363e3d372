// The messages of the event window.
#include <array>
#include <utility>

#include "client/log/guarded_thread.h"
#include "host/event_window.h"

namespace {

constexpr wchar_t kThis[] = L"EventWindow::WndProc";
/// The most of a version that is kept: a buffer of 32 characters holds it.
constexpr std::size_t kLongestVersion = 31;

}  // namespace

std::optional<std::intptr_t> EventWindow::WndProc(EventWindow* pEventWindow, const platform::WindowMessage& message) {
  constexpr auto kDefault = std::nullopt;
  if (pEventWindow == nullptr) {
    ModuleLog().e(L"EventWindow WndProc pEventWindow is NULL !");
    return 0;
  }
  EventWindow& window = *pEventWindow;
  const TVK::Log& log = window.log_;
  PenEventMonitor* const pen = window.pen_monitor_;
  switch (message.id) {
    case platform::kMessageCreate:
      return window.OnCreate(message.window);
    case platform::kMessageDestroy:
      log.d(L"EventWindow WndProc WM_DESTROY is found!");
      window.parts_.desktop.QuitWindow();
      return 0;
    case platform::kMessagePaint:
      return 0;
    case platform::kMessageClose: {
      log.d(L"EventWindow WndProc WM_CLOSE is found!");
      if (pen != nullptr) pen->Unregister();
      const std::lock_guard lock(window.mutex_);
      if (window._displayUserAgent != nullptr) window._displayUserAgent->UnregisterNotifications();
      window.window_ = nullptr;
      return kDefault;
    }
    case platform::kMessageQueryEndSession:
      log.d(L"EventWindow WndProc WM_QUERYENDSESSION is found!");
      window.SignalStopEvent();
      return 1;
    case platform::kMessageEndSession:
      log.d(L"EventWindow WndProc WM_ENDSESSION is found!");
      window.SignalStopEvent();
      return 0;
    case platform::kMessageDisplayChange: {
      const std::lock_guard lock(window.mutex_);
      if (window._displayUserAgent != nullptr) {
        window._displayUserAgent->ResolutionChange(static_cast<std::uint32_t>(message.wparam), message.lparam);
      }
      return 0;
    }
    case platform::kMessageInput:
      if (pen != nullptr) pen->OnInput(message.window, message.wparam, message.lparam);
      return kDefault;
    case platform::kMessagePowerBroadcast: {
      if (message.wparam != platform::kPowerSettingChange) return 0;
      const std::lock_guard lock(window.mutex_);
      if (window._displayUserAgent != nullptr) {
        window._displayUserAgent->PowerEventCallBack(platform::kPowerSettingChange, message.lparam);
      }
      return 0;
    }
    case platform::kMessageDeviceChange:
      OnDeviceChange(window, message);
      return 0;
    case platform::kMessagePointerDeviceInRange:
      log.d(L"WM_POINTERDEVICEINRANGE");
      return kDefault;
    case platform::kMessagePointerDeviceOutOfRange:
      log.d(L"WM_POINTERDEVICEOUTOFRANGE");
      return kDefault;
    default:
      return kDefault;
  }
}

void EventWindow::SignalStopEvent() {
  const platform::NamedEventResult stop = parts_.desktop.OpenSessionEvent(kStopEvent, platform::EventRights::kAll);
  if (stop.event != nullptr) stop.event->Set();
}

// Diagnostics alone: nothing is done with what a person puts into the machine.
void EventWindow::OnDeviceChange(const EventWindow& window, const platform::WindowMessage& message) {
  const bool arrival = message.wparam == platform::kDeviceArrival;
  if ((!arrival && message.wparam != platform::kDeviceRemoveComplete) || message.lparam == 0) return;
  std::array<std::uint8_t, platform::kMessageDataSize> data{};
  const std::size_t size = window.parts_.desktop.ReadMessageData(message.lparam, data);
  const auto medium = platform::DecodeMedium({data.data(), size});
  if (medium == platform::Medium::kSmartCard) {
    if (arrival) {
      window.log_.d(L"EventWindow WM_DEVICECHANGE Card is inserted to CardReader.");
    } else {
      window.log_.d(L"EventWindow WM_DEVICECHANGE Card is removed from CardReader.");
    }
  } else if (medium == platform::Medium::kDisc) {
    if (arrival) {
      window.log_.d(L"EventWindow WM_DEVICECHANGE cdrom is inserted.");
    } else {
      window.log_.d(L"EventWindow WM_DEVICECHANGE cdrom is removed.");
    }
  }
}

std::intptr_t EventWindow::OnCreate(void* window) {
  if (std::exchange(created_, true)) return 0;  // another process may send what the system sends once
  log_.d(L"EventWindow WndProc WM_CREATE is found!");
  {
    const std::lock_guard lock(mutex_);
    window_ = window;
    if (_displayUserAgent != nullptr) {
      log_.d(L"%s WM_CREATE : Logging dataset context!", kThis);
      _displayUserAgent->LogDatasetContext(true);
      if (IsFirstInvocation()) {
        log_.d(L"%s Logging device init: firstinvocation %d ", kThis, 1);
        _displayUserAgent->LogDevInitEvent();
      }
      _displayUserAgent->RegisterNotifications(window);
    }
  }
  if (PenEventMonitor* const pen = pen_monitor_; pen != nullptr) pen->Register(window);
  log_.d(L"WM_CREATE start new ConfigPolicyMonitorThread thread");
  const std::lock_guard lock(policy_thread_mutex_);
  if (parts_.runtime.Wait(*exiting_, std::chrono::milliseconds(0)) == 0) {
    parts_.desktop.QuitWindow();  // whoever closes the window may have given up looking for it
    return 0;
  }
  policy_thread_running_ = true;
  const bool started = TVK::CallLogged(log_, kThis, [this] {
    _configPolicyMonitorThread =
        TVK::StartGuardedThread(parts_.runtime, log_, "tvk-policy", [this] { ConfigPolicyMonitorThread(this); });
  });
  if (!started) log_.e(L"EventWindow Init _configPolicyMonitorThread is NULL! process exit!");
  return 0;
}

bool EventWindow::IsFirstInvocation() {
  if (parts_.data_folder.empty()) return false;  // a user without a folder of their own; a bare name would lie anywhere
  const std::filesystem::path file = parts_.data_folder / kVersionFile;
  const auto stored = parts_.desktop.ReadProfile(file, kVersionSection, kVersionKey, kLongestVersion);
  if (stored == parts_.version) return false;
  // A file without the key was here before: somebody edited it, and this client has run already.
  bool first = true;
  if (stored.has_value() && stored->empty()) {
    log_.e(L"EventWindow WndProc TvkVersion string can't be found in TVKUserAgentConfigFile.ini");
    first = false;
  } else if (stored.has_value()) {
    log_.d(L"EventWindow WndProc check TVK version, TvkVersionFromIniFile: \"%s\", TvkVersion: \"%s\"", *stored,
           parts_.version);
  }
  const std::uint32_t error = parts_.desktop.WriteProfile(file, kVersionSection, kVersionKey, parts_.version);
  if (error != 0) log_.e(L"%s: the version cannot be kept: error %d", kThis, error);
  return first;
}
