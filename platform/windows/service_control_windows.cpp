// The service manager as a tool's user asks it; being a service is in service_program_windows.cpp.
#include <algorithm>

#include "platform/files.h"
#include "platform/service_control.h"
#include "platform/windows/command_line.h"
#include "platform/windows/owner.h"
#include "platform/windows/text.h"

namespace platform {
namespace {

using std::chrono::milliseconds;
using windows::ErrorText;
using windows::LastErrorText;
using windows::UniqueService;

/// How long a deleted service's entry is waited for.
constexpr milliseconds kDeletionPatience(10'000);

// The service manager, and the service where it is in its list.
struct Access {
  UniqueService manager;
  UniqueService service;
  DWORD error = ERROR_SUCCESS;  // ERROR_SERVICE_DOES_NOT_EXIST: the manager is open, the service is not
};

Access Open(DWORD manager_rights, DWORD service_rights) {
  Access access;
  access.manager.Reset(OpenSCManagerW(nullptr, nullptr, manager_rights));
  if (access.manager) access.service.Reset(OpenServiceW(access.manager.get(), kServiceName, service_rights));
  if (!access.service) access.error = GetLastError();
  return access;
}

std::string NotOpened(const Access& access) {
  return "cannot open the service: " + ErrorText(access.error);
}

bool Query(const UniqueService& service, SERVICE_STATUS_PROCESS& status) {
  DWORD needed = 0;
  return QueryServiceStatusEx(service.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof status,
                              &needed) != FALSE;
}

std::uint32_t ExitCode(const SERVICE_STATUS_PROCESS& status) {
  return status.dwWin32ExitCode == ERROR_SERVICE_SPECIFIC_ERROR ? status.dwServiceSpecificExitCode
                                                                : status.dwWin32ExitCode;
}

// Waits until the service is no longer in `state`, but at most `timeout`; false when it cannot be asked.
bool WaitWhile(const UniqueService& service, DWORD state, milliseconds timeout, SERVICE_STATUS_PROCESS& status) {
  constexpr DWORD kPause = 50;  // a person or a script waits; the manager has no event to wait for across processes
  const ULONGLONG end = GetTickCount64() + static_cast<ULONGLONG>(std::max(timeout, milliseconds(0)).count());
  for (;;) {
    if (!Query(service, status)) return false;
    if (status.dwCurrentState != state || GetTickCount64() >= end) return true;
    Sleep(kPause);
  }
}

// Restarted after 5 s, 60 s, and then every 10 minutes, the last action being the one for every further failure: what
// comes in the way for a time (a full disk, a late volume) must not end the recording for good. An hour without a
// failure starts over. Also when it ends with an error, not only when its process dies, where the system knows that
// distinction.
bool SetFailureActions(const UniqueService& service) {
  SC_ACTION actions[] = {{SC_ACTION_RESTART, 5'000}, {SC_ACTION_RESTART, 60'000}, {SC_ACTION_RESTART, 600'000}};
  SERVICE_FAILURE_ACTIONSW failure{};
  failure.dwResetPeriod = 60 * 60;
  failure.cActions = static_cast<DWORD>(std::size(actions));
  failure.lpsaActions = actions;
  SERVICE_FAILURE_ACTIONS_FLAG flag{TRUE};
  return ChangeServiceConfig2W(service.get(), SERVICE_CONFIG_FAILURE_ACTIONS, &failure) &&
         (ChangeServiceConfig2W(service.get(), SERVICE_CONFIG_FAILURE_ACTIONS_FLAG, &flag) ||
          GetLastError() == ERROR_INVALID_LEVEL);
}

// How long the system's shutdown waits for the service; its own default differs between versions.
bool SetShutdownPatience(const UniqueService& service) {
  SERVICE_PRESHUTDOWN_INFO patience{static_cast<DWORD>(kServiceStopLimit.count())};
  return ChangeServiceConfig2W(service.get(), SERVICE_CONFIG_PRESHUTDOWN_INFO, &patience) != FALSE;
}

std::string Halt(const UniqueService& service, milliseconds timeout) {
  SERVICE_STATUS ignored{};
  if (!ControlService(service.get(), SERVICE_CONTROL_STOP, &ignored)) {
    const DWORD error = GetLastError();
    if (error == ERROR_SERVICE_NOT_ACTIVE) return {};
    // Already on its way down, maybe: then it is waited for like our own stop.
    if (error != ERROR_SERVICE_CANNOT_ACCEPT_CTRL) return "cannot stop the service: " + ErrorText(error);
  }
  SERVICE_STATUS_PROCESS status{};
  if (!WaitWhile(service, SERVICE_STOP_PENDING, timeout, status)) return LastErrorText("cannot ask the service");
  if (status.dwCurrentState == SERVICE_STOPPED) return {};
  return "the service has not stopped within " + std::to_string(timeout.count()) + " ms";
}

/// Waits until the entry of a service that was deleted is gone: it stays as long as anybody holds a handle to it, such
/// as the manager itself until the service's process has ended. False: it is still there after `timeout`.
bool WaitUntilGone(milliseconds timeout) {
  constexpr milliseconds kBetweenLooks(50);
  for (milliseconds waited(0);; waited += kBetweenLooks) {
    if (Open(SC_MANAGER_CONNECT, SERVICE_QUERY_STATUS).error == ERROR_SERVICE_DOES_NOT_EXIST) return true;
    if (waited >= timeout) return false;
    Sleep(static_cast<DWORD>(kBetweenLooks.count()));
  }
}

}  // namespace

std::string WhyNoServiceReaches(const std::filesystem::path& path) {
  if (GetDriveTypeW(path.root_path().c_str()) != DRIVE_REMOTE || !path.root_name().native().ends_with(L':')) return {};
  return PathToUtf8(path) + " is on a network drive, whose letter a service does not know; give the share's full name";
}

std::string InstallService(const ServiceInstallation& installation) {
  if (!installation.program.is_absolute()) return "the service's program needs an absolute path";
  const std::wstring line = windows::CommandLine(installation.program.native(), installation.arguments);
  const wchar_t* const title = installation.display_name.c_str();
  constexpr DWORD kManagerRights = SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE;
  constexpr DWORD kRights = SERVICE_CHANGE_CONFIG | SERVICE_START;  // a restart action needs the right to start
  Access access = Open(kManagerRights, kRights);
  if (access.error == ERROR_SERVICE_DOES_NOT_EXIST) {
    access.service.Reset(CreateServiceW(access.manager.get(), kServiceName, title, kRights, SERVICE_WIN32_OWN_PROCESS,
                                        SERVICE_AUTO_START, SERVICE_ERROR_NORMAL, line.c_str(), nullptr, nullptr,
                                        nullptr, nullptr, nullptr));
    if (!access.service) return LastErrorText("cannot install the service");
  } else if (!access.service) {
    return NotOpened(access);
  } else if (!ChangeServiceConfigW(access.service.get(), SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START,
                                   SERVICE_ERROR_NORMAL, line.c_str(), nullptr, nullptr, nullptr, L"LocalSystem",
                                   nullptr, title)) {
    const DWORD error = GetLastError();
    access.service.Reset();
    if (error == ERROR_SERVICE_MARKED_FOR_DELETE && WaitUntilGone(kDeletionPatience)) {
      return InstallService(installation);
    }
    return "cannot change the service: " + ErrorText(error);
  }
  std::wstring text = installation.description;
  SERVICE_DESCRIPTIONW description{text.data()};
  if (!ChangeServiceConfig2W(access.service.get(), SERVICE_CONFIG_DESCRIPTION, &description)) {
    return LastErrorText("cannot describe the service");
  }
  if (!SetFailureActions(access.service)) return LastErrorText("cannot set what follows a failure of the service");
  if (!SetShutdownPatience(access.service))
    return LastErrorText("cannot set how long a shutdown waits for the service");
  return {};
}

std::string UninstallService(milliseconds timeout) {
  Access access = Open(SC_MANAGER_CONNECT, DELETE | SERVICE_STOP | SERVICE_QUERY_STATUS);
  if (access.error == ERROR_SERVICE_DOES_NOT_EXIST) return {};
  if (!access.service) return NotOpened(access);
  if (std::string problem = Halt(access.service, timeout); !problem.empty()) return problem;
  if (!DeleteService(access.service.get()) && GetLastError() != ERROR_SERVICE_MARKED_FOR_DELETE) {
    return LastErrorText("cannot uninstall the service");
  }
  access.service.Reset();
  WaitUntilGone(std::min(timeout, kDeletionPatience));  // whoever still holds it, it goes by itself
  return {};
}

std::string LaunchService(const std::vector<std::wstring>& arguments, milliseconds timeout) {
  const Access access = Open(SC_MANAGER_CONNECT, SERVICE_START | SERVICE_QUERY_STATUS);
  if (!access.service) return NotOpened(access);
  std::vector<const wchar_t*> texts;
  for (const std::wstring& argument : arguments)
    texts.push_back(argument.c_str());
  const BOOL started = StartServiceW(access.service.get(), static_cast<DWORD>(texts.size()), texts.data());
  const DWORD error = started ? ERROR_SUCCESS : GetLastError();
  // A service that ends at once may be gone before the manager has looked at it: what it reported itself says more.
  if (error != ERROR_SUCCESS && error != ERROR_SERVICE_ALREADY_RUNNING && error != ERROR_SERVICE_REQUEST_TIMEOUT) {
    return "cannot start the service: " + ErrorText(error);
  }
  SERVICE_STATUS_PROCESS status{};
  if (!WaitWhile(access.service, SERVICE_START_PENDING, timeout, status)) {
    return LastErrorText("cannot ask the service");
  }
  if (status.dwCurrentState == SERVICE_RUNNING) return {};
  if (status.dwCurrentState == SERVICE_START_PENDING) {
    return "the service does not run after " + std::to_string(timeout.count()) + " ms";
  }
  if (status.dwWin32ExitCode == ERROR_SERVICE_SPECIFIC_ERROR) {
    return "the service has ended with exit code " + std::to_string(status.dwServiceSpecificExitCode);
  }
  if (error == ERROR_SERVICE_REQUEST_TIMEOUT) return "cannot start the service: " + ErrorText(error);
  return "the service has ended: " + ErrorText(status.dwWin32ExitCode);
}

std::string HaltService(milliseconds timeout) {
  const Access access = Open(SC_MANAGER_CONNECT, SERVICE_STOP | SERVICE_QUERY_STATUS);
  return access.service ? Halt(access.service, timeout) : NotOpened(access);
}

ServiceReport ReadServiceReport() {
  const Access access = Open(SC_MANAGER_CONNECT, SERVICE_QUERY_STATUS);
  if (access.error == ERROR_SERVICE_DOES_NOT_EXIST) return {};
  if (!access.service) return {.problem = NotOpened(access)};
  SERVICE_STATUS_PROCESS status{};
  if (!Query(access.service, status)) return {.problem = LastErrorText("cannot ask the service")};
  const auto state = [&] {
    switch (status.dwCurrentState) {
      case SERVICE_STOPPED:
        return ServiceState::kStopped;
      case SERVICE_START_PENDING:
        return ServiceState::kStartPending;
      case SERVICE_RUNNING:
        return ServiceState::kRunning;
      case SERVICE_STOP_PENDING:
        return ServiceState::kStopPending;
      default:
        return ServiceState::kOther;
    }
  }();
  return {.state = state, .process_id = status.dwProcessId, .exit_code = ExitCode(status), .problem = {}};
}

}  // namespace platform
