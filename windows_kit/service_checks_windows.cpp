// The service manager and the system account. This program is installed as the client's service for the time of a
// check, looks as that service, and is removed again.
#include <algorithm>
#include <optional>

#include "core/user_process_agent.h"
#include "platform/files.h"
#include "platform/local.h"
#include "platform/power.h"
#include "platform/service_control.h"
#include "platform/service_control_event.h"
#include "platform/session_process.h"
#include "platform/windows/doors_windows.h"
#include "platform/windows/folder_owners.h"
#include "platform/windows/owner.h"
#include "platform/windows/process_list.h"
#include "platform/windows/security.h"
#include "platform/windows/text.h"
#include "platform/windows/user_session.h"
#include "testing/child_process.h"
#include "testing/temp_folder.h"
#include "windows_kit/checks.h"

namespace windows_kit {
namespace {

using platform::windows::ErrorText;
using platform::windows::UniqueKernelHandle;
using platform::windows::UniqueService;

constexpr std::chrono::seconds kPatience(20);
constexpr std::chrono::seconds kAtOnce(5);
constexpr std::size_t kLongestAnswer = 4096;
constexpr wchar_t kPlainEvent[] = L"TvkKitPlain";

/// The service's own looks. They run on the service's main thread.
class Looks {
 public:
  Looks(platform::ServiceSession& session, platform::Runtime& runtime, platform::Event& power_news,
        std::filesystem::path folder)
      : session_(session), runtime_(runtime), power_news_(power_news), folder_(std::move(folder)) {}

  Finding Look(const std::wstring& what) {
    if (what == L"session") return Session();
    if (what == L"user") return User();
    if (what == L"owner") return Owner();
    if (what == L"agent") return Agent();
    return Power();
  }

 private:
  static Finding Session() {
    DWORD session = 1;
    ProcessIdToSessionId(GetCurrentProcessId(), &session);
    const UniqueKernelHandle plain(OpenEventW(SYNCHRONIZE, FALSE, kPlainEvent));
    return Judge(session == 0 && platform::windows::RunsAsSystem() && !plain,
                 "session " + std::to_string(session) + ", " +
                     (platform::windows::RunsAsSystem() ? "the system account" : "another account") +
                     (plain ? "; a user's event is found by its plain name" : "; a user's event is not found"));
  }

  static Finding User() {
    const std::string sid = platform::windows::ReadLoggedInUserSid();
    UniqueKernelHandle token;
    const DWORD error = platform::windows::OpenUserToken(platform::windows::LocalSessions(), token);
    return Judge(!sid.empty() && sid != "S-1-5-18" && error == ERROR_SUCCESS,
                 "user " + (sid.empty() ? "not found" : sid) + "; token: " + ErrorText(error));
  }

  Finding Owner() {
    const std::filesystem::path made = folder_ / "made";
    if (const std::string problem = platform::MakePrivateFolder(made); !problem.empty()) return CannotTell(problem);
    const std::string owner = platform::windows::OwnerOfEntry(made);
    return Judge(owner == "S-1-5-18" || owner == "S-1-5-32-544", "owner " + owner);
  }

  /// Starts a program under the user agent's name as the service starts the agent. It ends with the stop event, and at
  /// once where it may not open that.
  Finding Agent() {
    constexpr wchar_t kStopEvent[] = L"Global\\TvkUserAgentStopEvent";
    const std::filesystem::path program = folder_ / TVK::kUserAgentProgram;
    if (!CopyFileW(ProgramBeside("user_agent_stand_in").c_str(), program.c_str(), TRUE)) {
      return CannotTell(platform::windows::LastErrorText("CopyFile"));
    }
    const auto stop =
        runtime_.MakeNamedEvent(kStopEvent, platform::EventReset::kManual, false, platform::EventAccess::kServiceOnly);
    if (stop.event == nullptr) return CannotTell("making the stop event: " + ErrorText(stop.error));
    const auto user = platform::windows::FindLoggedInUser(platform::windows::LocalSessions());
    if (!user) return CannotTell("nobody is logged on");
    const auto others = platform::windows::ProcessesOf(TVK::kUserAgentProgram);  // of anybody who names one so
    const auto start = platform::OpenLocalUserSessions()->Start({program, {}, kStopEvent}, {});
    if (start.process == nullptr) return Judge(false, start.problem);
    auto processes = platform::windows::ProcessesOf(TVK::kUserAgentProgram);
    std::erase_if(processes, [&](std::uint32_t id) { return std::ranges::find(others, id) != others.end(); });
    DWORD session = platform::windows::kNoSession;
    std::string sid;
    if (processes.size() == 1) {
      ProcessIdToSessionId(processes.front(), &session);
      const UniqueKernelHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processes.front()));
      UniqueKernelHandle token;
      if (OpenProcessToken(process.get(), TOKEN_QUERY, token.Receive())) sid = platform::windows::UserSid(token.get());
    }
    const bool stayed = runtime_.Wait(start.process->end(), kAtOnce) != 0;
    stop.event->Set();
    const bool ended = runtime_.Wait(start.process->end(), kAtOnce) == 0;
    if (!ended) start.process->Kill(1);
    return Judge(session == user->session && sid == user->sid && stayed && ended,
                 "session " + std::to_string(session) + " of " + std::to_string(user->session) +
                     (sid == user->sid ? ", as the user" : ", as another account") +
                     (stayed ? "" : "; it ended at once") + (ended ? "" : "; the stop event did not end it"));
  }

  Finding Power() {
    const auto power = platform::windows::MakePower();
    const auto notices = power->Register(platform::PowerSetting::kPowerSource, session_.status_handle());
    if (notices == nullptr) return Judge(false, "the registration was refused");
    return Judge(runtime_.Wait(power_news_, kAtOnce) == 0, "registered; then the power source was awaited for 5 s");
  }

  platform::ServiceSession& session_;
  platform::Runtime& runtime_;
  platform::Event& power_news_;
  const std::filesystem::path folder_;
};

std::filesystem::path AnswerIn(const std::filesystem::path& folder) {
  return folder / "answer.txt";
}

/// The client's entry in the list of services, which leads to this program.
class InstalledService {
 public:
  InstalledService() {
    if (platform::ReadServiceReport().state != platform::ServiceState::kNotInstalled) {
      problem_ = "the client is installed here";
      return;
    }
    problem_ = platform::InstallService({.program = ProgramBeside("windows_kit"),
                                         .arguments = {L"--as-service"},
                                         .display_name = L"TVK Windows kit",
                                         .description = L"Lives as long as a check of the kit."});
    installed_ = true;
  }
  ~InstalledService() {
    if (installed_) platform::UninstallService(kPatience);
  }
  InstalledService(const InstalledService&) = delete;
  InstalledService& operator=(const InstalledService&) = delete;

  const std::string& problem() const { return problem_; }

 private:
  bool installed_ = false;
  std::string problem_;
};

Finding AskTheService(const wchar_t* what) {
  const TempFolder temp;
  const InstalledService service;
  if (!service.problem().empty()) return CannotTell(service.problem());
  const std::string problem = platform::LaunchService({what, temp.path().native()}, kPatience);
  if (!problem.empty()) return CannotTell(problem);
  std::optional<std::string> answer;
  WaitForState(
      [&] {
        answer = platform::ReadWholeFile(AnswerIn(temp.path()), kLongestAnswer);
        return answer.has_value();
      },
      2 * kPatience);
  platform::HaltService(kPatience);
  return answer ? FindingOf(*answer) : CannotTell("the service gave no answer");
}

Finding SystemSession() {
  const UniqueKernelHandle plain(CreateEventW(nullptr, TRUE, FALSE, kPlainEvent));
  return AskTheService(L"session");
}
Finding LoggedInUser() {
  return AskTheService(L"user");
}
Finding SystemOwner() {
  return AskTheService(L"owner");
}
Finding AgentInSession() {
  return AskTheService(L"agent");
}
Finding PowerIsTold() {
  return AskTheService(L"power");
}

Finding FailureActions() {
  const InstalledService installed;
  if (!installed.problem().empty()) return CannotTell(installed.problem());
  const UniqueService manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  const UniqueService service(OpenServiceW(manager.get(), platform::kServiceName, SERVICE_QUERY_CONFIG));
  SERVICE_FAILURE_ACTIONS_FLAG flag{};
  DWORD needed = 0;
  if (!QueryServiceConfig2W(service.get(), SERVICE_CONFIG_FAILURE_ACTIONS_FLAG, reinterpret_cast<BYTE*>(&flag),
                            sizeof flag, &needed)) {
    return CannotTell(platform::windows::LastErrorText("QueryServiceConfig2"));
  }
  return Judge(flag.fFailureActionsOnNonCrashFailures != FALSE,
               "the flag is " + std::to_string(flag.fFailureActionsOnNonCrashFailures));
}

constexpr Check kChecks[] = {
    {"failure-actions", "The service is started again also when it ends with an error instead of a crash.",
     FailureActions, Needs::kAdministrator},
    {"system-session", "The service runs as the system in session 0, where a user's plain names are not seen.",
     SystemSession, Needs::kAdministrator},
    {"logged-in-user", "The system account finds the user at the console and gets that one's token.", LoggedInUser,
     Needs::kAdministrator},
    {"system-owner", "What the system account makes belongs to it or to the administrators.", SystemOwner,
     Needs::kAdministrator},
    {"agent-in-session",
     "A service starts a program in the user agent's place in the session and as the user who is logged on, and its "
     "stop event ends it.",
     AgentInSession, Needs::kAdministrator},
    {"power-setting", "A service that registers for the power source is told the present one at once.", PowerIsTold,
     Needs::kAdministrator},
};

constexpr Check kForPersons[] = {
    {.name = "logoff",
     .claim = "A logoff and a switch of the console end the user agent and let go of the user's settings.",
     .needs = Needs::kPerson,
     .how = "install the service, log off and on again, switch users; DeviceContextEvent and UserProcess tell it in "
            "their logs"},
    {.name = "drive-news",
     .claim = "A drive that is plugged in or pulled is told to the service.",
     .needs = Needs::kPerson,
     .how = "install the service with StorageEvent, plug in a stick and pull it; tvkctl records shows both"},
    {.name = "power-news",
     .claim = "Mains and battery, percentage, sleep and resume are told to the service.",
     .needs = Needs::kPerson,
     .how = "install the service with BatteryEvent, unplug a notebook for some percent, let it sleep; tvkctl records"},
    {.name = "maker-software",
     .claim = "The power manager's driver, library and logs tell of the batteries.",
     .needs = Needs::kPerson,
     .how = "on a machine with that software: tvkctl inspect battery"},
    {.name = "pen-input",
     .claim = "A pen's and a finger's sessions are counted while other programs have the input.",
     .needs = Needs::kPerson,
     .how = "install the service with PenEvent, draw for a minute; tvkctl records"},
};

}  // namespace

int RunAsService() {
  const auto runtime = platform::MakeRealRuntime({});
  const auto stop = runtime->MakeEvent(platform::EventReset::kManual);
  const auto power_news = runtime->MakeEvent(platform::EventReset::kManual);
  platform::ServiceProgram program;
  program.main = [&](platform::ServiceSession& session) {
    if (session.arguments().size() != 2) return 1;
    session.ReportRunning();
    const std::filesystem::path folder = session.arguments()[1];
    Looks looks(session, *runtime, *power_news, folder);
    platform::ReplaceFile(AnswerIn(folder), LineOf(looks.Look(session.arguments()[0])));
    runtime->Wait(*stop, platform::kForever);
    return 0;
  };
  program.control = [&](unsigned long control, unsigned long type, void* data, void*) -> unsigned long {
    const auto event = platform::DecodeServiceControl(control, type, data);
    if (event && std::holds_alternative<platform::PowerSource>(*event)) power_news->Set();
    return 0;
  };
  program.stop = [&] { stop->Set(); };
  return platform::RunServiceProgram(program).served ? 0 : 1;
}

std::span<const Check> ServiceChecks() {
  return kChecks;
}

std::span<const Check> ChecksForPersons() {
  return kForPersons;
}

}  // namespace windows_kit
