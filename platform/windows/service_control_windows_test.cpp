// A service from its installation to its end. This program is both the test and, started by the service manager, the
// service, which answers through named events.
#include "platform/service_control.h"

#include <gtest/gtest.h>

#include <optional>
#include <thread>
#include <vector>

#include "platform/local.h"
#include "platform/power.h"
#include "platform/service_control_event.h"
#include "platform/windows/doors_windows.h"
#include "platform/windows/owner.h"
#include "platform/windows/power_windows.h"
#include "platform/windows/sent_power_setting.h"

namespace {

LPHANDLER_FUNCTION_EX registered_handler = nullptr;
void* registered_context = nullptr;

SERVICE_STATUS_HANDLE WINAPI RegisterAndRemember(const wchar_t* name, LPHANDLER_FUNCTION_EX handler, void* context) {
  registered_handler = handler;
  registered_context = context;
  const FARPROC call = GetProcAddress(GetModuleHandleW(L"advapi32.dll"), "RegisterServiceCtrlHandlerExW");
  return reinterpret_cast<decltype(&RegisterServiceCtrlHandlerExW)>(reinterpret_cast<void*>(call))(name, handler,
                                                                                                   context);
}

UINT WINAPI OneNetworkDrive(const wchar_t* root) {
  const std::wstring_view name = root;
  return name == L"Q:\\" || name.starts_with(L"\\\\") ? DRIVE_REMOTE : DRIVE_FIXED;
}

}  // namespace

// In the place of the imports: Wine's manager sends no power events, so the service's handler is called as Windows' one
// does; and it connects no drives.
extern "C" {
// NOLINTBEGIN(*-reserved-identifier,cert-dcl*)
decltype(&RegisterServiceCtrlHandlerExW) __imp_RegisterServiceCtrlHandlerExW = &RegisterAndRemember;
decltype(&GetDriveTypeW) __imp_GetDriveTypeW = &OneNetworkDrive;
// NOLINTEND(*-reserved-identifier,cert-dcl*)
}

namespace platform {
namespace {

using std::chrono::seconds;

constexpr wchar_t kServiceArgument[] = L"--as-service";
constexpr unsigned long kAskedControl = 200;
constexpr wchar_t kAskedEvent[] = L"Global\\TvkServiceTestAsked";
constexpr wchar_t kArgumentEvent[] = L"Global\\TvkServiceTestArgument";

DWORD SendPowerSetting(const GUID& setting, BYTE value) {
  return windows::SendPowerSetting(registered_handler, registered_context, setting, value);
}

// As Windows: the present value is told before the registration returns, in the call and on another thread.
DWORD WINAPI RegisterAndTell(const GUID* setting, DWORD /*flags*/, HANDLE /*service*/, void** registration) {
  SendPowerSetting(*setting, 1);
  std::thread([setting] { SendPowerSetting(*setting, 1); }).join();
  *registration = nullptr;
  return ERROR_SUCCESS;
}
DWORD WINAPI Unregister(void* /*registration*/) {
  return ERROR_SUCCESS;
}

// Whether the service may register for power events and hears of them.
bool HearsOfPower(ServiceSession& session, const std::vector<std::optional<SystemEvent>>& heard) {
  const auto power = windows::MakePower();
  windows::PowerNoticeCalls calls;
  calls.register_setting = RegisterAndTell;
  calls.unregister_setting = Unregister;
  return power->Register(PowerSetting::kPowerSource, session.status_handle()) != nullptr &&
         windows::RegisterPowerNotices(PowerSetting::kBatteryPercent,
                                       static_cast<SERVICE_STATUS_HANDLE>(session.status_handle()), calls) != nullptr &&
         SendPowerSetting(GUID_ACDC_POWER_SOURCE, 1) == NO_ERROR &&
         SendPowerSetting(GUID_BATTERY_PERCENTAGE_REMAINING, 37) == NO_ERROR &&
         heard == std::vector<std::optional<SystemEvent>>{BatteryPercent{1}, BatteryPercent{1}, PowerSource::kBattery,
                                                          BatteryPercent{37}};
}

// Ends with 7 when it was started with the argument "fail", with 9 when it hears nothing of the power.
int RunAsTheService() {
  const auto runtime = MakeRealRuntime({});
  const auto stop = runtime->MakeEvent(EventReset::kManual);
  int context = 0;
  std::vector<std::optional<SystemEvent>> heard;
  ServiceProgram program;
  program.context = &context;
  program.main = [&](ServiceSession& session) {
    if (session.status_handle() == nullptr) return 8;
    if (session.arguments() == std::vector<std::wstring>{L"fail"}) return 7;
    session.ReportRunning();
    if (session.arguments() == std::vector<std::wstring>{L"hello"}) {
      if (!HearsOfPower(session, heard)) return 9;
      runtime->OpenNamedEvent(kArgumentEvent).event->Set();
    }
    runtime->Wait(*stop, kForever);
    session.ReportStopping(seconds(5));
    session.ReportStopping(seconds(5));
    return 0;
  };
  program.control = [&](unsigned long control, unsigned long type, void* data, void* got) -> unsigned long {
    if (control == SERVICE_CONTROL_POWEREVENT) heard.push_back(DecodeServiceControl(control, type, data));
    if (control == kAskedControl && got == &context) runtime->OpenNamedEvent(kAskedEvent).event->Set();
    return 0;
  };
  program.stop = [&] { stop->Set(); };
  return RunServiceProgram(program).served ? 0 : 1;
}

ServiceInstallation ThisProgram() {
  wchar_t path[MAX_PATH];
  const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
  return {.program = std::wstring(path, length),
          .arguments = {kServiceArgument},
          .display_name = L"TVK test service",
          .description = L"Lives as long as a test."};
}

/// How long a shutdown of the system waits for the service.
DWORD ShutdownPatience() {
  const windows::UniqueService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  const windows::UniqueService service(OpenServiceW(manager.get(), kServiceName, SERVICE_QUERY_CONFIG));
  SERVICE_PRESHUTDOWN_INFO patience{};
  DWORD needed = 0;
  QueryServiceConfig2W(service.get(), SERVICE_CONFIG_PRESHUTDOWN_INFO, reinterpret_cast<BYTE*>(&patience),
                       sizeof patience, &needed);
  return patience.dwPreshutdownTimeout;
}

bool SendControl(DWORD code) {
  const windows::UniqueService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  const windows::UniqueService service(OpenServiceW(manager.get(), kServiceName, SERVICE_USER_DEFINED_CONTROL));
  SERVICE_STATUS status{};
  return ControlService(service.get(), code, &status) != FALSE;
}

TEST(ServiceControl, ServiceLivesFromInstallationToRemoval) {
  const auto runtime = MakeRealRuntime({});
  const auto asked = runtime->MakeNamedEvent(kAskedEvent, EventReset::kAuto, false, EventAccess::kServiceOnly);
  const auto argued = runtime->MakeNamedEvent(kArgumentEvent, EventReset::kAuto, false, EventAccess::kServiceOnly);
  ASSERT_TRUE(asked.event && argued.event);

  EXPECT_EQ(UninstallService(seconds(0)), "");
  EXPECT_EQ(ReadServiceReport().state, ServiceState::kNotInstalled);
  EXPECT_NE(LaunchService({}, seconds(1)), "");
  EXPECT_NE(InstallService({.program = "relative.exe", .arguments = {}, .display_name = {}, .description = {}}), "");
  ASSERT_EQ(InstallService(ThisProgram()), "");
  ASSERT_EQ(InstallService(ThisProgram()), "") << "a second time brings it up to date";
  EXPECT_EQ(ReadServiceReport().state, ServiceState::kStopped);
  EXPECT_EQ(ShutdownPatience(), 20'000u) << "not the system's own, which is longer or shorter by its version";

  ASSERT_EQ(LaunchService({L"hello"}, seconds(30)), "");
  EXPECT_EQ(runtime->Wait(*argued.event, seconds(20)), 0u);
  const ServiceReport running = ReadServiceReport();
  EXPECT_EQ(running.state, ServiceState::kRunning);
  EXPECT_NE(running.process_id, 0u);
  EXPECT_TRUE(SendControl(kAskedControl));
  EXPECT_EQ(runtime->Wait(*asked.event, seconds(20)), 0u);

  EXPECT_EQ(HaltService(seconds(30)), "");
  EXPECT_EQ(ReadServiceReport().state, ServiceState::kStopped);
  EXPECT_EQ(HaltService(seconds(30)), "") << "it has stopped already";
  EXPECT_EQ(LaunchService({L"fail"}, seconds(30)), "the service has ended with exit code 7");
  EXPECT_EQ(ReadServiceReport().exit_code, 7u);
  EXPECT_EQ(UninstallService(seconds(30)), "");
  EXPECT_EQ(ReadServiceReport().state, ServiceState::kNotInstalled);
}

TEST(ServiceControl, LettersOfNetworkDrivesAreNothingForAService) {
  EXPECT_EQ(WhyNoServiceReaches(L"C:\\data"), "");
  EXPECT_EQ(WhyNoServiceReaches(L"\\\\server\\share\\data"), "");
  EXPECT_NE(WhyNoServiceReaches(L"Q:\\data").find("give the share's full name"), std::string::npos);
}

}  // namespace
}  // namespace platform

int main(int count, char** texts) {
  if (count == 2 && std::string_view(texts[1]) == "--as-service") return platform::RunAsTheService();
  testing::InitGoogleTest(&count, texts);
  return RUN_ALL_TESTS();
}
