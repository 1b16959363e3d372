// What a host process hears from its console and the system's signals, and what it tells the manager that started it.
// Running as a Windows service is in service_control.h.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace platform {

/// Callbacks of an InterruptWatcher. They run on a thread of the system's or the watcher's and should only signal. What
/// they throw is swallowed on Linux, and the next signal is another try; on Windows they must not throw. An empty one
/// is not called.
struct InterruptCallbacks {
  /// The process shall end. Called once, at the first of: Ctrl-C, Ctrl-Break, a closed console, the end of the session
  /// (Windows); SIGINT, SIGTERM, and SIGHUP when there is no `reload` or `ends_with_terminal` says so (Linux). Further
  /// ones are swallowed.
  std::function<void()> stop;
  /// The process shall read its settings again: SIGHUP. Never called on Windows.
  std::function<void()> reload;
  /// The process is of no use without the terminal that it was started in: a SIGHUP by which the system tells of that
  /// one's end, or that comes when it is gone, calls `stop`. Not so when whoever started the process had SIGHUP
  /// ignored, as nohup does. Without effect on Windows, where a closed console stops every process in it.
  bool ends_with_terminal = false;
};

/// Turns the wish of a user or of the system that the process end into a callback. One at a time in a process.
class InterruptWatcher {
 public:
  InterruptWatcher() = default;
  InterruptWatcher(const InterruptWatcher&) = delete;
  InterruptWatcher& operator=(const InterruptWatcher&) = delete;

  /// Gives the signals back to the system. When it returns, no callback runs and none will. To be called on the thread
  /// that called `Start`, and not from a callback.
  virtual ~InterruptWatcher() = default;

  /// To be called by the main thread before it starts any other: on Linux, threads inherit that the signals are
  /// blocked, and one that was started before would be hit by them. Programs that are started later inherit it as well.
  /// Linux: as long as the watcher lives, writing to a pipe that nobody reads, or beyond the size that a file may have,
  /// fails and does not end the process.
  /// On Windows, when the console is closed the system ends the process some 5 s after `stop` was called.
  /// Returns null when the process has one already or the system refuses; `problem`, when given, then says which.
  static std::unique_ptr<InterruptWatcher> Start(InterruptCallbacks callbacks, std::string* problem = nullptr);
};

/// Tells the service manager that started this process how it stands, as sd_notify(3) does: lines such as "READY=1",
/// "STATUS=...", "STOPPING=1". Any thread may call it. Does nothing where no manager listens (NOTIFY_SOCKET is not
/// set), and on Windows. Returns an empty text, or what went wrong.
std::string NotifyServiceManager(std::string_view state);

}  // namespace platform
