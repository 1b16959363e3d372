#include "platform/process_host.h"

#include <mutex>

#include "platform/windows/sys.h"
#include "platform/windows/text.h"

namespace platform {
namespace {

class ConsoleWatcher final : public InterruptWatcher {
 public:
  explicit ConsoleWatcher(InterruptCallbacks callbacks) : callbacks_(std::move(callbacks)) {}

  ~ConsoleWatcher() override {
    {
      const std::lock_guard lock(mutex_);
      if (current_ != this) return;
      current_ = nullptr;
    }
    SetConsoleCtrlHandler(&ConsoleWatcher::OnControl, FALSE);
  }

  // Empty, or what went wrong.
  std::string Begin() {
    const std::lock_guard lock(mutex_);
    if (current_ != nullptr) return "the process has an interrupt watcher already";
    if (!SetConsoleCtrlHandler(&ConsoleWatcher::OnControl, TRUE)) {
      return windows::LastErrorText("SetConsoleCtrlHandler");
    }
    current_ = this;
    return {};
  }

 private:
  // On a thread that the system starts for it.
  static BOOL WINAPI OnControl(DWORD control) {
    {
      const std::lock_guard lock(mutex_);
      if (current_ == nullptr) return FALSE;
      if (!current_->stopped_ && current_->callbacks_.stop) current_->callbacks_.stop();
      current_->stopped_ = true;
    }
    // When the console closes or the session ends, the system ends the process as soon as this returns: the main thread
    // shall have the time that there is to end it properly.
    if (control != CTRL_C_EVENT && control != CTRL_BREAK_EVENT) Sleep(INFINITE);
    return TRUE;
  }

  static inline std::mutex mutex_;  ///< Guards what follows; held while `stop` runs.
  static inline ConsoleWatcher* current_ = nullptr;

  const InterruptCallbacks callbacks_;
  bool stopped_ = false;
};

}  // namespace

std::unique_ptr<InterruptWatcher> InterruptWatcher::Start(InterruptCallbacks callbacks, std::string* problem) {
  auto watcher = std::make_unique<ConsoleWatcher>(std::move(callbacks));
  const std::string text = watcher->Begin();
  if (text.empty()) return watcher;
  if (problem != nullptr) *problem = text;
  return nullptr;
}

std::string NotifyServiceManager(std::string_view) {
  return {};
}

}  // namespace platform
