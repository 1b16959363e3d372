// The service under the service manager of Windows, installed and driven as an administrator does it.
#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/windows/owner.h"
#include "platform/windows/text.h"
#include "tests/e2e/service_under_test.h"

namespace {

using platform::windows::UniqueKernelHandle;
using platform::windows::UniqueRegistryKey;
using platform::windows::UniqueService;

constexpr wchar_t kServiceName[] = L"TVKClientService";
constexpr DWORD kStopLimitMs = 20000;

class WindowsService : public testing::Test {
 protected:
  ~WindowsService() override { Command({"uninstall"}); }

  /// Runs the program with a command; what it printed.
  std::string Command(const std::vector<std::string>& arguments) {
    ChildProcess program(ProgramBeside("TVKClientService"), arguments);
    EXPECT_EQ(program.WaitForEnd(kPatience), 0);
    std::string text;
    for (const std::string& line : program.Lines())
      text += line + '\n';
    return text;
  }

  void InstallAndStart(const std::string& policy) {
    folder_.WritePolicy(policy);
    std::vector<std::string> install = folder_.Arguments();
    install.push_back("install");
    EXPECT_EQ(Command(install), "");
    EXPECT_EQ(Command({"status"}).find("stopped"), 0u);
    EXPECT_EQ(Command({"start"}), "");
  }

  /// 0 when it does not run.
  DWORD ProcessId() {
    constexpr std::string_view kRunning = "running, process ";
    const std::string status = Command({"status"});
    return status.starts_with(kRunning) ? static_cast<DWORD>(std::stoul(status.substr(kRunning.size()))) : 0;
  }

  const ServiceFolder folder_;
};

bool SendControl(DWORD code) {
  const UniqueService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  const UniqueService service(OpenServiceW(manager.get(), kServiceName, SERVICE_USER_DEFINED_CONTROL));
  SERVICE_STATUS status{};
  return ControlService(service.get(), code, &status) != FALSE;
}

UniqueKernelHandle OpenForWaitingAndSignalling(const wchar_t* name) {
  return UniqueKernelHandle(OpenEventW(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, name));
}

TEST_F(WindowsService, LivesFromInstallationToRemoval) {
  constexpr const wchar_t* kEvents[] = {L"Global\\TvkUserAgentTelemetryPolicyChangeEvent",
                                        L"Global\\TvkUserAgentTVKPolicyChangeEvent",
                                        L"Global\\TvkDevicePathChangeEvent"};
  for (const wchar_t* name : kEvents)
    EXPECT_FALSE(OpenForWaitingAndSignalling(name));
  InstallAndStart(CpuPolicy("full"));
  const DWORD process_id = ProcessId();
  const UniqueKernelHandle process(OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process_id));
  ASSERT_TRUE(process);

  for (const wchar_t* name : kEvents) {
    const UniqueKernelHandle event = OpenForWaitingAndSignalling(name);
    ASSERT_TRUE(event) << platform::windows::Utf8FromWide(name);
    EXPECT_EQ(WaitForSingleObject(event.get(), 0), WAIT_TIMEOUT) << "not signalled from the start";
    EXPECT_TRUE(SetEvent(event.get()));
    EXPECT_EQ(WaitForSingleObject(event.get(), 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event.get(), 0), WAIT_TIMEOUT) << "one wait takes the signal";
  }
  for (DWORD code = 128; code <= 255; ++code)
    EXPECT_TRUE(SendControl(code)) << code;
  EXPECT_EQ(ProcessId(), process_id) << "controls do it no harm";
  EXPECT_TRUE(
      WaitForState([&] { return folder_.CountInLog("EventManager.log", "is starting CPUEvent") == 1; }, kPatience));

  EXPECT_EQ(Command({"stop"}), "");
  EXPECT_EQ(WaitForSingleObject(process.get(), kStopLimitMs), WAIT_OBJECT_0);
  DWORD exit_code = 1;
  EXPECT_TRUE(GetExitCodeProcess(process.get(), &exit_code));
  EXPECT_EQ(exit_code, 0u);
  EXPECT_EQ(Command({"status"}), "stopped, exit code 0\n");
  EXPECT_EQ(folder_.CountInLog("EventManager.log", "EventManager Stop"), 1u);
  EXPECT_EQ(folder_.CountInLog("SystemEvents.log", "not all of the system's events"), 0u) << "drives are told";
  for (const wchar_t* name : kEvents)
    EXPECT_FALSE(OpenForWaitingAndSignalling(name)) << "the events go with the service";
  EXPECT_EQ(Command({"uninstall"}), "");
  EXPECT_EQ(Command({"status"}), "not installed\n");
  // All that it has in the registry; it goes when the last handle to it is closed, the ended process's among them.
  UniqueRegistryKey entry;
  EXPECT_TRUE(WaitForState(
      [&] {
        return RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"System\\CurrentControlSet\\Services\\TVKClientService", 0, KEY_READ,
                             entry.Receive()) == ERROR_FILE_NOT_FOUND;
      },
      kPatience));
}

TEST_F(WindowsService, ServiceManagerLearnsWhyItDidNotStart) {
  folder_.WritePolicy("no policy");
  std::vector<std::string> install = folder_.Arguments();
  install.push_back("install");
  EXPECT_EQ(Command(install), "");
  ChildProcess start(ProgramBeside("TVKClientService"), {"start"});
  EXPECT_EQ(start.WaitForEnd(kPatience), 3);
  EXPECT_TRUE(start.WaitForLine("exit code 2", std::chrono::seconds(0)));
}

TEST(Service, RegionThatChangesGivesOneNewDeviceContext) {
  // Another process; the registry is this test's own.
  const auto set_nation = [](const std::string& id) {
    const std::string command = R"(reg add "HKCU\Control Panel\International\Geo" /v Nation /f /t REG_SZ /d )" + id;
    ASSERT_EQ(std::system((command + " >NUL").c_str()), 0) << command;
  };
  set_nation("94");
  const ServiceFolder folder;
  folder.WritePolicy(CpuPolicy("full"));
  {
    ConsoleService service(folder);
    const auto logged = [&](const std::string& text) {
      return service.WaitFor([&] { return folder.CountInLog("EventManager.log", text) == 1; }, kPatience);
    };
    ASSERT_TRUE(service.WaitForLine(CpuLine("DeviceInit"), kPatience));
    ASSERT_TRUE(logged("EventManager::NotificationProcessorThread Entry")) << "the first context is there by then";
    set_nation("84");
    ASSERT_TRUE(logged("EventManager::OnDeviceContextChanges Exit")) << "the monitors hear of the second one";
  }
  ExpectOneNewDeviceContext(folder, L"DE", L"FR");
}

}  // namespace
