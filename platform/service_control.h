// Windows services: putting one into the service manager's list, starting and stopping it, and being one.
//
// The main of a service stays a thin portable program: it calls RunServiceProgram with its callbacks, and where the
// answer is that no service manager started the process, it runs in its console. Other systems have no service manager
// of this kind; every function then says so in its answer and changes nothing.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// The name under which the service manager knows the client's service.
inline constexpr wchar_t kServiceName[] = L"TVKClientService";

/// How long a stop may take at most, in the words to the service manager and in what a shutdown of the system waits.
inline constexpr std::chrono::milliseconds kServiceStopLimit{20'000};

/// What the functions answer where there is no service manager of Windows' kind.
inline constexpr std::string_view kNoServiceManager = "there is no service manager of that kind; use systemd";

struct ServiceInstallation {
  std::filesystem::path program;        ///< Absolute path of the service's program.
  std::vector<std::wstring> arguments;  ///< Its command line after the program, each time that it starts.
  std::wstring display_name;            ///< What the system's list of services shows.
  std::wstring description;
};

/// Why the installed service could not reach `path` (absolute), which this process can: a letter of a network drive
/// belongs to whoever connected it. Empty where nothing speaks against it.
std::string WhyNoServiceReaches(const std::filesystem::path& path);

/// Enters the service (kServiceName) as one that starts with the system, runs as LocalSystem and is restarted when it
/// fails, or brings an existing entry to that state. Needs an administrator.
/// Returns an empty text, or what went wrong.
std::string InstallService(const ServiceInstallation& installation);

/// Stops the service, waiting for its end as HaltService does, and takes it out of the list; it is gone when this
/// returns, unless somebody else holds on to it. Returns an empty text, or what went wrong; a service that is not in
/// the list is no failure.
std::string UninstallService(std::chrono::milliseconds timeout);

/// Starts the installed service and waits until it runs. `arguments` go to ServiceSession::arguments.
/// Returns an empty text, or what went wrong (it also runs no longer, or not yet after `timeout`).
std::string LaunchService(const std::vector<std::wstring>& arguments, std::chrono::milliseconds timeout);

/// Stops the service and waits until it has stopped. Returns an empty text, or what went wrong.
std::string HaltService(std::chrono::milliseconds timeout);

enum class ServiceState { kNotInstalled, kStopped, kStartPending, kRunning, kStopPending, kOther };

struct ServiceReport {
  ServiceState state = ServiceState::kNotInstalled;
  std::uint32_t process_id = 0;  ///< 0 while it does not run.
  std::uint32_t exit_code = 0;   ///< Of its last end: what ServiceProgram::main returned, or the system's error.
  std::string problem;           ///< Why it could not be found out; empty otherwise. The other fields then say nothing.
};

ServiceReport ReadServiceReport();

/// The service's side of its talk with the service manager. Any thread may call it while ServiceProgram::main runs.
class ServiceSession {
 public:
  ServiceSession() = default;
  ServiceSession(const ServiceSession&) = delete;
  ServiceSession& operator=(const ServiceSession&) = delete;

  /// The SERVICE_STATUS_HANDLE, as registrations for power notifications take it. Not to be closed.
  virtual void* status_handle() const = 0;

  /// What LaunchService, or whoever started the service, gave along.
  virtual const std::vector<std::wstring>& arguments() const = 0;

  /// Until then the manager waits for the service to come up (30 s), and sends it nothing.
  virtual void ReportRunning() = 0;

  /// The service is stopping and needs at most `more` until the next call or its end: one checkpoint further.
  virtual void ReportStopping(std::chrono::milliseconds more) = 0;

 protected:
  ~ServiceSession() = default;
};

/// The callbacks of a service; all stay valid until RunServiceProgram has returned.
struct ServiceProgram {
  /// The life of the service, on a thread of its own. Its return ends the service; anything but 0, and an exception,
  /// counts as a failure after which the manager restarts it.
  std::function<int(ServiceSession&)> main;

  /// Each control code that arrives, with the arguments of HandlerEx, on the thread that called RunServiceProgram.
  /// Stop, preshutdown, power events, session changes, interrogate and the codes 128 to 255 arrive. Must not throw. The
  /// result goes to the manager, but for stop, preshutdown and interrogate, which are always taken.
  std::function<unsigned long(unsigned long control, unsigned long event_type, void* event_data, void* context)>
      control;

  /// Called once, after `control`, when the manager wants the service to end; on the same thread. Should only signal:
  /// the manager has been told that it is stopping.
  std::function<void()> stop;

  void* context = nullptr;  ///< Handed to `control`.
};

/// How a run under the service manager went.
struct ServiceRun {
  bool served = false;               ///< False: no service manager started this process; nothing was called.
  static constexpr int kFailed = 3;  ///< As our programs end that fail while they run.

  int exit_code = 0;    ///< What `main` returned; kFailed when it threw, and where the service could not begin.
  std::string problem;  ///< Why not served, or what `main` threw; empty otherwise.
};

/// Connects the process with the service manager and runs `program`; returns once it has stopped. Once in a process.
ServiceRun RunServiceProgram(const ServiceProgram& program);

}  // namespace platform
