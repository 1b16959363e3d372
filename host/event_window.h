// The user agent's event window: what only a user's session is told, and the policy's switching of who hears it.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "client/log/log.h"
#include "client/policy/config_agent.h"
#include "client/policy/eligibility_filter.h"
#include "core/dataset_decision.h"
#include "monitors/session/display_user_agent.h"
#include "monitors/session/pen_event_monitor.h"
#include "platform/desktop.h"
#include "platform/runtime.h"

/// One in a process. It lives from Create's begin to its end, and ends when the service's stop event is set: by the
/// service, by the next one where the service was killed and started again, at the end of the session, when no process
/// runs the service's program any more, or when the window was closed.
///
/// Threads: Create's own; the window's, which answers its messages; the one that watches the service; the one that
/// follows the policy. Thread bodies and handlers are static, and log and return where they are given no window.
class EventWindow {
 public:
  static constexpr wchar_t kStopEvent[] = L"Global\\TvkUserAgentStopEvent";
  static constexpr wchar_t kWindowName[] = L"TvkUserEventWindow";  ///< Class and title.
  static constexpr wchar_t kVersionFile[] = L"TVKUserAgentConfigFile.ini";
  static constexpr wchar_t kVersionSection[] = L"TVK User Agent";
  static constexpr wchar_t kVersionKey[] = L"TvkVersion";

  /// What the window is made of. All of it must outlive the window.
  struct Parts {
    platform::Runtime& runtime;
    platform::Desktop& desktop;
    IConfigAgent* config_policy_agent = nullptr;  ///< Null: no policy is followed, and nothing is collected.
    std::function<EligibilityFilter()> device;    ///< This device, as filters of the policy see it.
    std::function<std::unique_ptr<DisplayUserAgent>()> make_display;  ///< Null where it cannot be made.
    std::function<PenEventMonitor*()> pen_monitor;                    ///< The process's own.
    std::wstring version;                                             ///< Of the client.
    std::filesystem::path data_folder;                                ///< Of the version file.
    std::function<void()> tidy = {};  ///< Called each time the service is looked for; must not wait. May be empty.
  };

  explicit EventWindow(Parts parts);
  /// Create must have returned, or not been called.
  ~EventWindow() = default;
  EventWindow(const EventWindow&) = delete;
  EventWindow& operator=(const EventWindow&) = delete;

  /// Runs the window until it is to end; every thread of it has ended then. Once.
  void Create();

  /// Opens the stop event, puts the policy in force and starts the window's and the watching thread. False, with the
  /// reason logged, when there is nothing to do: no service, no policy, or it is to end already. No thread runs then.
  bool Init();
  /// Waits for the end of the three threads.
  void WaitExit();

  /// Answers a message of the window; nothing: the system does what it does by default. On the window's thread.
  static std::optional<std::intptr_t> WndProc(EventWindow* pEventWindow, const platform::WindowMessage& message);

  /// Follows the events of the policy until the stop event is set or WaitExit began.
  static void ConfigPolicyMonitorThread(EventWindow* pEventWindow);
  /// Waits for the stop event, and sets it when no process runs the service's program.
  static void WaitParentProcessExitThread(EventWindow* pEventWindow);

  /// The client's policy changed: the displays are described anew.
  static void OnDeviceContextChange(EventWindow* pEventWindow);
  /// The device's path changed: the displays are initialised anew.
  static void OnDevicePathChange(EventWindow* pEventWindow);
  /// Makes and ends the observers of displays and pens as the telemetry policy wants it. False, with the reason logged
  /// and everything as it was, when there is no policy for this device.
  static bool OnTelemetryPolicyChange(EventWindow* pEventWindow);

 private:
  /// The log of the process's window, which is also written to where there is no window. Opened by the constructor.
  static TVK::Log& ModuleLog();

  /// The body of the window's thread; what its loop ended with.
  int MessageWindow();
  /// Waits at most so long for the begin of WaitExit.
  void Pause(std::chrono::milliseconds time);
  void SignalStopEvent();

  std::intptr_t OnCreate(void* window);
  /// Whether the version is another one than at the last start; the file then holds this one.
  bool IsFirstInvocation();
  static void OnDeviceChange(const EventWindow& window, const platform::WindowMessage& message);

  std::unique_ptr<platform::Event> OpenPolicyEvent(const wchar_t* name);
  void FollowPolicyEvents(platform::Event& tvk_policy, platform::Event& device_path, platform::Event& telemetry_policy);

  struct PolicyInForce {
    TVK::NormalisedPolicy policy;
    EligibilityFilter device;
  };
  /// Throws what reading the device throws.
  PolicyInForce Interpret(const TelemetryPolicy& policy) const;
  static bool Runs(const TVK::DatasetRow& row, const PolicyInForce& in_force);
  /// Whether the policy in force lets displays be observed.
  bool IsDisplayEnabled() const;
  bool SwitchDisplay(bool enabled);
  void SwitchPen(bool enabled);
  /// The policy does not apply, or does again: all goes on observing, and nothing is counted meanwhile.
  void RestPen(bool rests);

  const Parts parts_;
  const TVK::DatasetTable datasets_;  ///< Those of the session.
  TVK::Log& log_;
  std::unique_ptr<platform::Event> _hStopEvent;  ///< Null until Init; closed when all threads have ended.
  std::unique_ptr<platform::Event> exiting_;     ///< Manual; WaitExit has begun.
  std::thread _messageWindowThread;
  std::thread _waitParentProcessExitThread;
  std::atomic<bool> policy_thread_running_ = false;
  bool created_ = false;  ///< Of the window's thread: its creation was answered.

  std::mutex policy_thread_mutex_;  ///< Guards the next; WaitExit may meet the window's first message.
  std::thread _configPolicyMonitorThread;

  /// Guards the next two; no channel is asked under it. Recursive: registering may bring the window its first message.
  std::recursive_mutex mutex_;
  std::unique_ptr<DisplayUserAgent> _displayUserAgent;   ///< While the policy wants it.
  void* window_ = nullptr;                               ///< From its creation to its closing.
  std::atomic<PenEventMonitor*> pen_monitor_ = nullptr;  ///< While the policy wants it.
};
