// The talk with a service manager that is strict: what Windows' one is documented to take amiss, and Wine's forgives.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/service_control.h"
#include "platform/windows/sys.h"

#include <winsvc.h>

namespace {

/// Plays the manager for one life of a service; see the functions that stand in the place of the imports.
struct PlayedManager {
  LPHANDLER_FUNCTION_EX handler = nullptr;
  void* context = nullptr;
  std::vector<SERVICE_STATUS> reports;
  std::vector<DWORD> answers;  ///< To what is sent when the service has stopped.
  bool started_it = true;      ///< Whether the process is one that the manager started.

  DWORD Send(DWORD control) const { return handler(control, 0, nullptr, context); }
  bool HasStopped() const { return !reports.empty() && reports.back().dwCurrentState == SERVICE_STOPPED; }
};
PlayedManager played;

// The dispatcher returns when the service has stopped; controls may have been on their way.
BOOL WINAPI Dispatch(const SERVICE_TABLE_ENTRYW* table) {
  if (!played.started_it) {
    SetLastError(ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
    return FALSE;
  }
  std::wstring name = table->lpServiceName;
  wchar_t* texts[] = {name.data(), nullptr};
  std::thread([&] { table->lpServiceProc(1, texts); }).join();
  for (const DWORD late : {SERVICE_CONTROL_INTERROGATE, SERVICE_CONTROL_STOP, SERVICE_CONTROL_PRESHUTDOWN})
    played.answers.push_back(played.Send(late));
  return TRUE;
}

SERVICE_STATUS_HANDLE WINAPI Register(const wchar_t*, LPHANDLER_FUNCTION_EX handler, void* context) {
  played.handler = handler;
  played.context = context;
  return reinterpret_cast<SERVICE_STATUS_HANDLE>(&played);
}

BOOL WINAPI Report(SERVICE_STATUS_HANDLE handle, SERVICE_STATUS* status) {
  EXPECT_EQ(handle, reinterpret_cast<SERVICE_STATUS_HANDLE>(&played));
  EXPECT_FALSE(played.HasStopped()) << "the handle is no longer the service's";
  played.reports.push_back(*status);
  return TRUE;
}

}  // namespace

extern "C" {
// NOLINTBEGIN(*-reserved-identifier,cert-dcl*)
decltype(&StartServiceCtrlDispatcherW) __imp_StartServiceCtrlDispatcherW = &Dispatch;
decltype(&RegisterServiceCtrlHandlerExW) __imp_RegisterServiceCtrlHandlerExW = &Register;
decltype(&SetServiceStatus) __imp_SetServiceStatus = &Report;
// NOLINTEND(*-reserved-identifier,cert-dcl*)
}

namespace platform {
namespace {

constexpr DWORD kAlways =
    SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_PRESHUTDOWN | SERVICE_ACCEPT_POWEREVENT | SERVICE_ACCEPT_SESSIONCHANGE;

TEST(ServiceProgramTest, ReportsAreInOrderAndNoneFollowsTheLast) {
  struct Row {
    bool stopped_while_starting;
    int exit_code;
    std::vector<DWORD> states;
  };
  for (const Row& row : {Row{false,
                             0,
                             {SERVICE_START_PENDING, SERVICE_RUNNING, SERVICE_STOP_PENDING, SERVICE_STOP_PENDING,
                              SERVICE_STOP_PENDING, SERVICE_STOPPED}},
                         Row{true,
                             3,
                             {SERVICE_START_PENDING, SERVICE_STOP_PENDING, SERVICE_STOP_PENDING, SERVICE_STOP_PENDING,
                              SERVICE_STOPPED}}}) {
    played = {};
    int stops = 0;
    ServiceProgram program;
    program.main = [&](ServiceSession& session) {
      if (row.stopped_while_starting) played.Send(SERVICE_CONTROL_STOP);
      session.ReportRunning();
      if (!row.stopped_while_starting) played.Send(SERVICE_CONTROL_STOP);
      session.ReportStopping(std::chrono::seconds(5));
      session.ReportStopping(std::chrono::seconds(5));
      return row.exit_code;
    };
    program.stop = [&] { ++stops; };
    const ServiceRun run = RunServiceProgram(program);
    EXPECT_TRUE(run.served);
    EXPECT_EQ(run.exit_code, row.exit_code);
    EXPECT_EQ(stops, 1);
    EXPECT_EQ(played.answers, (std::vector<DWORD>{NO_ERROR, NO_ERROR, NO_ERROR}));

    std::vector<DWORD> states;
    DWORD checkpoint = 0;
    for (const SERVICE_STATUS& report : played.reports) {
      const bool pending =
          report.dwCurrentState == SERVICE_START_PENDING || report.dwCurrentState == SERVICE_STOP_PENDING;
      EXPECT_EQ(report.dwControlsAccepted, report.dwCurrentState == SERVICE_RUNNING ? kAlways : 0);
      EXPECT_EQ(report.dwWaitHint > 0, pending);
      if (pending) {
        EXPECT_GT(report.dwCheckPoint, checkpoint) << "a manager that sees no progress gives up";
      } else {
        EXPECT_EQ(report.dwCheckPoint, 0u);
      }
      checkpoint = report.dwCheckPoint;
      states.push_back(report.dwCurrentState);
    }
    EXPECT_EQ(states, row.states);
    ASSERT_TRUE(played.HasStopped());
    EXPECT_EQ(played.reports.back().dwServiceSpecificExitCode, static_cast<DWORD>(row.exit_code));
    EXPECT_EQ(played.reports.back().dwWin32ExitCode == ERROR_SERVICE_SPECIFIC_ERROR, row.exit_code != 0);
  }
}

// Played: with Wine's own manager such a process was now and then taken for a service, while others were started.
TEST(ServiceProgramTest, ProcessOfNoServiceManagerIsToldSo) {
  played = {};
  played.started_it = false;
  ServiceProgram program;
  program.main = [](ServiceSession&) { return 0; };
  const ServiceRun run = RunServiceProgram(program);
  EXPECT_FALSE(run.served);
  EXPECT_NE(run.problem.find("1063"), std::string::npos) << run.problem;
  EXPECT_TRUE(played.reports.empty());
}

}  // namespace
}  // namespace platform
