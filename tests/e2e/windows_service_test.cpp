// The service under the service manager of Windows, installed and driven as an administrator does it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>

#include "platform/windows/owner.h"
#include "platform/windows/text.h"
#include "tests/e2e/service_under_test.h"

namespace {

using platform::windows::UniqueKernelHandle;
using platform::windows::UniqueRegistryKey;
using platform::windows::UniqueService;

constexpr wchar_t kServiceName[] = L"TVKClientService";
constexpr DWORD kStopLimitMs = 5000;

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
  for (const wchar_t* name : kEvents)
    EXPECT_FALSE(OpenForWaitingAndSignalling(name)) << "the events go with the service";
  EXPECT_EQ(Command({"uninstall"}), "");
  EXPECT_EQ(Command({"status"}), "not installed\n");
}

TEST_F(WindowsService, MeasuresTheLoadWhereTheUtilityCounterIsMissing) {
  const Load load;
  InstallAndStart(CpuPolicy("full", R"("CPUPeakThreshold": "1", "CPUPeakThresholdDuration": "15ms")"));
  EXPECT_TRUE(WaitForState(
      [&] { return folder_.CountInLog("CpuEventMonitor.log", "CPUInfo::InitPdhQuery failed ") == 1; }, kPatience));
  EXPECT_TRUE(WaitForState([&] { return folder_.CountInLog("CpuEventMonitor.log", "Utilization(percentage):") > 0; },
                           kPatience))
      << "the other counter is read";
  EXPECT_NE(ProcessId(), 0u);
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
    ASSERT_TRUE(service.WaitForLine("DeviceInit", kPatience));
    ASSERT_TRUE(logged("EventManager::NotificationProcessorThread Entry")) << "the first context is there by then";
    set_nation("84");
    ASSERT_TRUE(logged("EventManager::OnDeviceContextChanges Exit")) << "the monitors hear of the second one";
  }
  ExpectOneNewDeviceContext(folder, L"DE", L"FR");
}

using RegistryContent = std::map<std::wstring, std::wstring>;

// Every key and value below `key`; a value's data as it lies there.
void ReadBelow(HKEY key, const std::wstring& path, RegistryContent& content) {
  static wchar_t name[16384];
  static wchar_t data[1u << 16];
  for (DWORD i = 0;; ++i) {
    DWORD length = static_cast<DWORD>(std::size(name));
    DWORD size = sizeof data;
    const LSTATUS error = RegEnumValueW(key, i, name, &length, nullptr, nullptr, reinterpret_cast<BYTE*>(data), &size);
    if (error != ERROR_SUCCESS && error != ERROR_MORE_DATA) break;
    std::wstring& value = content[path + L" : " + std::wstring(name, length)];
    if (error == ERROR_SUCCESS) value.assign(data, size / sizeof data[0]);
  }
  for (DWORD i = 0;; ++i) {
    DWORD length = static_cast<DWORD>(std::size(name));
    if (RegEnumKeyExW(key, i, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
    const std::wstring child_path = path + L'\\' + std::wstring(name, length);
    content[child_path];
    UniqueRegistryKey child;
    if (RegOpenKeyExW(key, name, 0, KEY_READ, child.Receive()) == ERROR_SUCCESS) {
      ReadBelow(child.get(), child_path, content);
    }
  }
}

RegistryContent ReadRegistry() {
  RegistryContent content;
  for (const wchar_t* path : {L"Software\\Microsoft\\Windows", L"Software\\Microsoft\\Windows NT",
                              L"System\\CurrentControlSet\\Control", L"System\\CurrentControlSet\\Services"}) {
    UniqueRegistryKey key;
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, key.Receive()), 0);
    ReadBelow(key.get(), path, content);
  }
  // The service manager's own counter of service processes, and what a desktop that comes up meanwhile writes.
  std::erase_if(content, [](const auto& entry) {
    return entry.first.find(L"\\ServiceCurrent") != std::wstring::npos ||
           entry.first.find(L"\\Control\\Video") != std::wstring::npos;
  });
  return content;
}

TEST_F(WindowsService, LeavesNothingInTheRegistry) {
  const RegistryContent before = ReadRegistry();
  InstallAndStart(CpuPolicy("full"));
  EXPECT_EQ(Command({"stop"}), "");
  EXPECT_EQ(Command({"uninstall"}), "");
  RegistryContent after;
  // The service's entry goes when the last handle to it is closed, the ended process's among them.
  WaitForState([&] { return (after = ReadRegistry()) == before; }, kPatience);
  for (const auto& [path, value] : after) {
    const auto found = before.find(path);
    EXPECT_TRUE(found != before.end() && found->second == value) << platform::windows::Utf8FromWide(path);
  }
  EXPECT_EQ(after.size(), before.size());
}

}  // namespace
