// Being a Windows service: the connection with the service manager, its controls and the reports to it.
#include <algorithm>
#include <exception>
#include <limits>
#include <mutex>

#include "platform/service_control.h"
#include "platform/windows/owner.h"
#include "platform/windows/text.h"

namespace platform {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kStartLimit = std::chrono::seconds(30);

class Session final : public ServiceSession {
 public:
  explicit Session(const ServiceProgram& program) : program_(program) {
    status_.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status_.dwCurrentState = SERVICE_START_PENDING;
    current_ = this;
  }
  ~Session() { current_ = nullptr; }

  // Until the service has stopped.
  ServiceRun Serve() {
    std::wstring name = kServiceName;
    const SERVICE_TABLE_ENTRYW table[] = {{name.data(), &Session::ServiceMain}, {nullptr, nullptr}};
    if (!StartServiceCtrlDispatcherW(table)) {
      run_.problem = windows::LastErrorText("no service manager started this process");
    }
    return run_;
  }

  void* status_handle() const override { return handle_; }
  const std::vector<std::wstring>& arguments() const override { return arguments_; }

  void ReportRunning() override {
    const std::lock_guard lock(mutex_);
    // A stop may have come before: it is not taken back.
    if (status_.dwCurrentState == SERVICE_START_PENDING) Report(SERVICE_RUNNING, milliseconds(0));
  }

  void ReportStopping(milliseconds more) override {
    const std::lock_guard lock(mutex_);
    Report(SERVICE_STOP_PENDING, more);
  }

 private:
  static void WINAPI ServiceMain(DWORD count, wchar_t** texts) { current_->Live(count, texts); }

  static DWORD WINAPI OnControl(DWORD control, DWORD event_type, void* event_data, void* session) {
    return static_cast<Session*>(session)->Handle(control, event_type, event_data);
  }

  void Live(DWORD count, wchar_t** texts) {
    // The first text is the service's name.
    for (DWORD i = 1; i < count; ++i)
      arguments_.emplace_back(texts[i]);
    run_.served = true;
    handle_ = RegisterServiceCtrlHandlerExW(kServiceName, &Session::OnControl, this);
    if (handle_ == nullptr) {
      run_.exit_code = ServiceRun::kFailed;
      run_.problem = windows::LastErrorText("RegisterServiceCtrlHandlerEx");
      return;
    }
    {
      const std::lock_guard lock(mutex_);
      Report(SERVICE_START_PENDING, kStartLimit);
    }
    try {
      run_.exit_code = program_.main(*this);
    } catch (const std::exception& error) {
      run_.exit_code = ServiceRun::kFailed;
      run_.problem = error.what();
    } catch (...) {
      run_.exit_code = ServiceRun::kFailed;
      run_.problem = "unknown exception";
    }
    const std::lock_guard lock(mutex_);
    if (run_.exit_code != 0) {
      status_.dwWin32ExitCode = ERROR_SERVICE_SPECIFIC_ERROR;
      status_.dwServiceSpecificExitCode = static_cast<DWORD>(run_.exit_code);
    }
    Report(SERVICE_STOPPED, milliseconds(0));
  }

  DWORD Handle(DWORD control, DWORD event_type, void* event_data) {
    const bool ends = control == SERVICE_CONTROL_STOP || control == SERVICE_CONTROL_PRESHUTDOWN ||
                      control == SERVICE_CONTROL_SHUTDOWN;
    if (ends) ReportStopping(kServiceStopLimit);  // until the service itself says how long it needs
    const DWORD answer = program_.control ? program_.control(control, event_type, event_data, program_.context)
                                          : static_cast<DWORD>(ERROR_CALL_NOT_IMPLEMENTED);
    if (ends && !stop_called_) {
      stop_called_ = true;
      if (program_.stop) program_.stop();
    }
    return ends || control == SERVICE_CONTROL_INTERROGATE ? NO_ERROR : answer;
  }

  // Needs the lock.
  void Report(DWORD state, milliseconds limit) {
    if (status_.dwCurrentState == SERVICE_STOPPED) return;  // after which the handle is no longer ours
    constexpr milliseconds kMost(std::numeric_limits<DWORD>::max());
    const bool pending = state == SERVICE_START_PENDING || state == SERVICE_STOP_PENDING;
    status_.dwCheckPoint = pending ? status_.dwCheckPoint + 1 : 0;
    status_.dwWaitHint = static_cast<DWORD>(std::clamp(limit, milliseconds(0), kMost).count());
    status_.dwCurrentState = state;
    status_.dwControlsAccepted = state != SERVICE_RUNNING
                                     ? 0
                                     : SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_PRESHUTDOWN | SERVICE_ACCEPT_POWEREVENT |
                                           SERVICE_ACCEPT_SESSIONCHANGE;
    SetServiceStatus(handle_, &status_);  // the manager ends a service that it does not hear from
  }

  static inline Session* current_ = nullptr;  ///< The dispatcher hands no context to ServiceMain.

  const ServiceProgram& program_;
  SERVICE_STATUS_HANDLE handle_ = nullptr;
  std::vector<std::wstring> arguments_;
  ServiceRun run_;            ///< Written by the service's thread, read when the dispatcher has returned.
  bool stop_called_ = false;  ///< The control thread's own.
  std::mutex mutex_;          ///< Guards status_ and its order of reports.
  SERVICE_STATUS status_{};
};

}  // namespace

ServiceRun RunServiceProgram(const ServiceProgram& program) {
  return Session(program).Serve();
}

}  // namespace platform
