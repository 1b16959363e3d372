// The service and the user agent as whole processes, with the session of the real system.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <set>

#include "core/notifier.h"
#include "core/user_process_agent.h"
#include "host/event_window.h"
#include "monitors/session/session_writer.h"
#include "platform/local.h"
#include "platform/windows/owner.h"
#include "platform/windows/process_list.h"
#include "tests/e2e/service_under_test.h"

#include <dbt.h>
#include <winternl.h>

namespace TVK {
namespace {

using platform::windows::UniqueKernelHandle;

/// In the process's environment, so of whoever is started for its user.
std::filesystem::path AgentFolder() {
  return std::filesystem::path(_wgetenv(L"LOCALAPPDATA")) / "TVK";
}

std::string DisplayPolicy(const std::string& scope, bool display = true) {
  return R"({"telemetryScope": ")" + scope + R"(", "datasets": [
    {"id": "C4D1AFBD-F3E9-4242-8811-7C6C3904E9CA", "name": "DisplayEvent", "enabled": )" +
         (display ? "true" : "false") + R"(},
    {"id": "DAA0ED20-1EC1-42CE-9C96-BC9E81D0A146", "name": "PenEvent", "enabled": true}]})";
}

/// On a person's machine another one may run.
std::set<std::uint32_t> Services() {
  const auto services = platform::windows::ProcessesOf(kServiceProgram);
  return {services.begin(), services.end()};
}

std::vector<std::uint32_t> Agents() {
  return platform::windows::ProcessesOf(kUserAgentProgram);
}

bool AgentRuns() {
  return !Agents().empty();
}

HWND AgentWindow() {
  return FindWindowW(EventWindow::kWindowName, EventWindow::kWindowName);
}

/// The process of the user agent's window.
DWORD AgentProcess() {
  DWORD process = 0;
  GetWindowThreadProcessId(AgentWindow(), &process);
  return process;
}

/// How many handles a process has open; 0: the system does not list it.
ULONG Handles(DWORD process) {
  std::vector<std::uint8_t> list(1 << 20);
  if (NtQuerySystemInformation(SystemProcessInformation, list.data(), static_cast<ULONG>(list.size()), nullptr) != 0) {
    return 0;
  }
  for (std::size_t at = 0;;) {
    SYSTEM_PROCESS_INFORMATION entry;
    std::memcpy(&entry, list.data() + at, sizeof entry);  // Wine aligns them for nobody
    if (reinterpret_cast<std::uintptr_t>(entry.UniqueProcessId) == process) return entry.HandleCount;
    if (entry.NextEntryOffset == 0) return 0;
    at += entry.NextEntryOffset;
  }
}

/// Stops every thread of a process, as one that hangs has them.
bool Suspend(DWORD process) {
  using SuspendProcess = LONG(NTAPI*)(HANDLE);
  const auto suspend = reinterpret_cast<SuspendProcess>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtSuspendProcess")));
  const UniqueKernelHandle opened(OpenProcess(PROCESS_SUSPEND_RESUME, FALSE, process));
  return suspend != nullptr && opened && suspend(opened.get()) == 0;
}

class UserAgentTest : public testing::Test {
 protected:
  UserAgentTest() { std::filesystem::remove_all(AgentFolder()); }
  /// The next service must not find the agent of this one.
  ~UserAgentTest() override {
    EXPECT_TRUE(WaitForState([] { return !AgentRuns(); }, kPatience));
  }

  std::size_t CountInLog(const std::string& text) const {
    std::ifstream file(AgentFolder() / "log" / "EventWindow.log", std::ios::binary);
    std::size_t count = 0;
    for (std::string line; std::getline(file, line);)
      count += line.find(text) != std::string::npos;
    return count;
  }
  /// Until it follows the policy, which is the last that it begins.
  bool WaitForWindow(ConsoleService& service, std::size_t times = 1) const {
    return service.WaitFor(
        [&] { return CountInLog("ConfigPolicyMonitorThread thread start...") == times && AgentWindow() != nullptr; },
        kPatience);
  }

  /// No display is that wide.
  static constexpr int kFirstWidth = 20001;

  /// The widths of the changes of resolution in the store, oldest first.
  std::vector<int> Widths() const {
    std::vector<int> widths;
    for (const StoredRecord& record : folder_.Records({.kind = RecordKind::kItem, .dataset_name = L"DisplayEvent"})) {
      constexpr std::string_view kKey = R"("Width":")";
      const std::size_t at = record.json.find(kKey);
      if (at != record.json.npos) widths.push_back(std::atoi(record.json.c_str() + at + kKey.size()));
    }
    return widths;
  }

  const ServiceFolder folder_;
};

/// The result of a message that is sent to the agent's window; nothing when it is not answered.
std::optional<DWORD_PTR> Send(UINT message, WPARAM wparam, LPARAM lparam) {
  DWORD_PTR result = 99;
  constexpr UINT kLimitMs = 20000;
  if (SendMessageTimeoutW(AgentWindow(), message, wparam, lparam, SMTO_NORMAL, kLimitMs, &result) == 0) return {};
  return result;
}

TEST_F(UserAgentTest, ThePolicyStartsItSwitchesItsDatasetsAndEndsIt) {
  folder_.WritePolicy(DisplayPolicy("basic"));
  ConsoleService service(folder_, {"--for", "10m"});
  ASSERT_TRUE(service.WaitFor(
      [&] { return folder_.CountInLog("EventManager.log", "NotificationProcessorThread Entry") == 1; }, kPatience));
  EXPECT_FALSE(AgentRuns());
  folder_.WritePolicy(DisplayPolicy("full"));
  ASSERT_TRUE(WaitForWindow(service));
  const auto described = [&](const wchar_t* dataset) {
    return folder_.Records({.kind = RecordKind::kDataset, .dataset_name = dataset}).size();
  };
  EXPECT_TRUE(
      service.WaitFor([&] { return described(L"DisplayEvent") == 1 && described(L"PenEvent") == 1; }, kPatience));
  const DWORD process = AgentProcess();
  const auto switch_off_and_on = [&] {
    for (const bool display : {false, true}) {
      const std::size_t before = CountInLog("Get TelemetryPolicy successfully.");
      folder_.WritePolicy(DisplayPolicy("full", display));
      EXPECT_TRUE(service.WaitFor([&] { return CountInLog("Get TelemetryPolicy successfully.") > before; }, kPatience));
    }
  };
  switch_off_and_on();
  EXPECT_TRUE(service.WaitFor([&] { return described(L"DisplayEvent") == 2; }, kPatience)) << "it was made anew";
  EXPECT_EQ(described(L"PenEvent"), 1u) << "it went on";
  const ULONG handles = Handles(process);
  EXPECT_GT(handles, 0u);
  constexpr int kRounds = 6;
  for (int i = 0; i < kRounds; ++i)
    switch_off_and_on();
  EXPECT_TRUE(service.WaitFor([&] { return Handles(process) < handles + kRounds; }, kPatience)) << Handles(process);
  EXPECT_EQ(AgentProcess(), process);
  folder_.WritePolicy(DisplayPolicy("none"));
  EXPECT_TRUE(service.WaitFor([] { return !AgentRuns(); }, kPatience));
  EXPECT_TRUE(WaitForState([&] { return CountInLog("WaitExit MessageWindow thread exit") == 1; }, kPatience));
}

TEST_F(UserAgentTest, MessagesOfOtherProcessesHaveTheirResults) {
  folder_.WritePolicy(DisplayPolicy("full"));
  ConsoleService service(folder_);
  ASSERT_TRUE(WaitForWindow(service));
  EXPECT_FALSE(IsWindowVisible(AgentWindow()));
  EXPECT_EQ(GetAwarenessFromDpiAwarenessContext(GetWindowDpiAwarenessContext(AgentWindow())),
            DPI_AWARENESS_PER_MONITOR_AWARE)
      << "resolutions are told in true pixels";
  EXPECT_EQ(Send(WM_POWERBROADCAST, PBT_APMRESUMEAUTOMATIC, 0), 0u);
  EXPECT_EQ(Send(WM_POWERBROADCAST, PBT_POWERSETTINGCHANGE, 0), 0u);
  EXPECT_EQ(Send(WM_POWERBROADCAST, PBT_POWERSETTINGCHANGE, 16), 0u) << "a place that nobody can read";
  DEV_BROADCAST_VOLUME disc{};
  disc.dbcv_size = sizeof disc;
  disc.dbcv_devicetype = DBT_DEVTYP_VOLUME;
  disc.dbcv_flags = DBTF_MEDIA;
  EXPECT_EQ(Send(WM_DEVICECHANGE, DBT_DEVICEARRIVAL, reinterpret_cast<LPARAM>(&disc)), 0u);
  EXPECT_EQ(CountInLog("cdrom is inserted."), 1u);
  EXPECT_EQ(Send(WM_DEVICECHANGE, DBT_DEVNODES_CHANGED, 0), 0u);
  EXPECT_EQ(Send(WM_DISPLAYCHANGE, 32, MAKELPARAM(801, 601)), 0u);
  const auto items = [&] { return folder_.Records({.kind = RecordKind::kItem, .dataset_name = L"DisplayEvent"}); };
  ASSERT_TRUE(service.WaitFor([&] { return items().size() == 2; }, kPatience));
  EXPECT_NE(items().back().json.find(R"("Height":"601","Width":"801")"), std::string::npos) << items().back().json;
}

TEST_F(UserAgentTest, WhatWasAcknowledgedOutlivesTheKillOfItAmongAFloodOfChanges) {
  folder_.WritePolicy(DisplayPolicy("full"));
  ConsoleService service(folder_);
  std::vector<int> lasting;  // what was in the store when the next agent had its window
  // The writer sends a record when the one before is acknowledged: what is written is all that was, and one at most
  // that was on its way. Fewer than wait in it at once, so that it is the kill alone that loses any.
  constexpr int kFlood = 250;
  static_assert(kFlood < SessionWriter::kMost);
  constexpr std::size_t kSomeWritten = 10;
  constexpr std::size_t kKills = 2;
  for (std::size_t kills = 0; kills < kKills; ++kills) {
    SCOPED_TRACE(kills);
    ASSERT_TRUE(WaitForWindow(service, kills + 1)) << "the service starts it again";
    const UniqueKernelHandle process(OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, AgentProcess()));
    const int first = kFirstWidth + static_cast<int>(kills) * kFlood;
    for (int width = first; width < first + kFlood; ++width)
      ASSERT_TRUE(PostMessageW(AgentWindow(), WM_DISPLAYCHANGE, 32, MAKELPARAM(width, 601)));
    std::vector<int> seen;
    ASSERT_TRUE(service.WaitFor(
        [&] {
          seen = Widths();
          return seen.size() >= lasting.size() + kSomeWritten;
        },
        kPatience));
    ASSERT_TRUE(TerminateProcess(process.get(), 1));
    EXPECT_EQ(WaitForSingleObject(process.get(), 20000), WAIT_OBJECT_0);
    ASSERT_TRUE(WaitForWindow(service, kills + 2)) << "the service starts it again";
    const std::vector<int> after = Widths();
    ASSERT_GE(after.size(), seen.size()) << "what was written stays";
    ASSERT_LT(after.size(), lasting.size() + kFlood) << "the kill came in the flood";
    for (int width = first; lasting.size() < after.size(); ++width)
      lasting.push_back(width);
    EXPECT_EQ(after, lasting) << "each once, in their order, none missing";
    RecordProperty("written before kill " + std::to_string(kills), std::to_string(after.size()));
  }
  lasting.push_back(kFirstWidth - 1);
  EXPECT_EQ(Send(WM_DISPLAYCHANGE, 32, MAKELPARAM(lasting.back(), 601)), 0u);
  EXPECT_TRUE(service.WaitFor([&] { return Widths() == lasting; }, kPatience)) << "the last agent writes";
}

TEST_F(UserAgentTest, EveryEndingEndsTheProcess) {
  folder_.WritePolicy(DisplayPolicy("full"));
  struct Ending {
    const char* what;
    UINT message;
    DWORD_PTR result;
    const char* line;
  };
  for (const auto& [what, message, result, line] :
       {Ending{"query", WM_QUERYENDSESSION, 1, "WM_QUERYENDSESSION is found!"},
        {"end", WM_ENDSESSION, 0, "WM_ENDSESSION is found!"},
        {"close", WM_CLOSE, 0, "WM_CLOSE is found!"},
        {"kill of the service", 0, 0, "Found that the TVKClientService.exe process had exited"}}) {
    SCOPED_TRACE(what);
    std::filesystem::remove_all(AgentFolder());
    ConsoleService service(folder_);
    ASSERT_TRUE(WaitForWindow(service));
    const UniqueKernelHandle process(
        OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, AgentProcess()));
    if (message != 0) {
      EXPECT_EQ(Send(message, TRUE, 0), result);
    } else {
      service.Ask(ChildRequest::kKill);
    }
    EXPECT_EQ(WaitForSingleObject(process.get(), 20000), WAIT_OBJECT_0);
    DWORD code = 1;
    EXPECT_TRUE(GetExitCodeProcess(process.get(), &code));
    EXPECT_EQ(code, 0u);
    EXPECT_EQ(CountInLog(line), 1u);
    EXPECT_EQ(CountInLog("WaitExit MessageWindow thread exit"), 1u);
    EXPECT_EQ(CountInLog("return fail!"), 0u);
  }
}

TEST_F(UserAgentTest, TheKillOfTheServiceEndsItWithinFiveSecondsInOneOfThreeRounds) {
  folder_.WritePolicy(DisplayPolicy("full"));
  constexpr ULONGLONG kPromised = 5000;
  // The best of three: what a busy machine adds to the watch's two seconds differs from one round to the next, and a
  // watch that is too slow is so in each.
  constexpr int kRounds = 3;
  ULONGLONG shortest = kPromised + 1;
  for (int round = 0; round < kRounds && shortest > kPromised; ++round) {
    std::filesystem::remove_all(AgentFolder());
    ConsoleService service(folder_);
    ASSERT_TRUE(WaitForWindow(service));
    const UniqueKernelHandle process(OpenProcess(SYNCHRONIZE, FALSE, AgentProcess()));
    const ULONGLONG begin = GetTickCount64();
    service.Ask(ChildRequest::kKill);
    ASSERT_EQ(WaitForSingleObject(process.get(), 20000), WAIT_OBJECT_0);
    shortest = std::min(shortest, GetTickCount64() - begin);
    RecordProperty("milliseconds of round " + std::to_string(round), std::to_string(GetTickCount64() - begin));
  }
  EXPECT_LE(shortest, kPromised) << "milliseconds, in the best of " << kRounds << " rounds";
}

TEST_F(UserAgentTest, AServiceThatIsKilledAndStartedAgainAtOnceHasOneAgent) {
  folder_.WritePolicy(DisplayPolicy("full"));
  std::optional<ConsoleService> service(std::in_place, folder_);
  ASSERT_TRUE(WaitForWindow(*service));
  const DWORD former = AgentProcess();
  service->Ask(ChildRequest::kKill);
  service.emplace(folder_);
  ASSERT_TRUE(service->WaitFor(
      [&] {
        const auto agents = Agents();
        return agents.size() == 1 && agents.front() != former && AgentProcess() == agents.front();
      },
      kPatience));
}

TEST_F(UserAgentTest, AServiceThatHangsHoldsUpNoEnd) {
  folder_.WritePolicy(DisplayPolicy("full"));
  const std::set<std::uint32_t> others = Services();
  ConsoleService service(folder_);
  ASSERT_TRUE(WaitForWindow(service));
  const UniqueKernelHandle process(OpenProcess(SYNCHRONIZE, FALSE, AgentProcess()));
  std::set<std::uint32_t> ours = Services();
  std::erase_if(ours, [&](std::uint32_t id) { return others.contains(id); });
  ASSERT_EQ(ours.size(), 1u);
  ASSERT_TRUE(Suspend(*ours.begin()));
  const auto runtime = platform::MakeRealRuntime({});
  runtime->OpenNamedEvent(kTelemetryPolicyChangeEvent).event->Set();
  EXPECT_EQ(Send(WM_DISPLAYCHANGE, 32, MAKELPARAM(801, 601)), 0u);
  EXPECT_EQ(Send(WM_CLOSE, 0, 0), 0u);
  // An answer would be waited for 30 s.
  EXPECT_EQ(WaitForSingleObject(process.get(), 20000), WAIT_OBJECT_0);
  service.Ask(ChildRequest::kKill);
}

TEST_F(UserAgentTest, AVersionThatIsNewHereInitialisesTheDisplays) {
  folder_.WritePolicy(DisplayPolicy("full"));
  const std::filesystem::path file = AgentFolder() / EventWindow::kVersionFile;
  const auto read = [&] {
    std::wstring text(32, L'\0');
    text.resize(GetPrivateProfileStringW(EventWindow::kVersionSection, EventWindow::kVersionKey, L"", text.data(), 32,
                                         file.c_str()));
    return text;
  };
  std::wstring version;
  for (const auto& [stored, initialises] : {std::pair<const char*, bool>{nullptr, true},
                                            {"same", false},
                                            {"[TVK User Agent]\r\nOther=1\r\n", false},
                                            {"[TVK User Agent]\r\nTvkVersion=0.0\r\n", true}}) {
    SCOPED_TRACE(stored == nullptr ? "no file" : stored);
    std::filesystem::remove_all(AgentFolder() / "log");
    if (stored != nullptr && stored[0] == '[') std::ofstream(file, std::ios::binary) << stored;
    {
      ConsoleService service(folder_);
      ASSERT_TRUE(WaitForWindow(service));
      EXPECT_EQ(CountInLog("Logging device init: firstinvocation 1"), initialises);
    }
    EXPECT_TRUE(WaitForState([] { return !AgentRuns(); }, kPatience));
    if (version.empty()) version = read();
    EXPECT_FALSE(version.empty());
    EXPECT_EQ(read(), version);
  }
}

}  // namespace
}  // namespace TVK
