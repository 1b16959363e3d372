#include "apps/service/service_host.h"

#include <atomic>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <sstream>

#include "apps/service/console_output.h"
#include "platform/local.h"
#include "platform/process_host.h"
#include "platform/runtime.h"
#include "platform/service_control.h"
#include "platform/service_control_event.h"
#include "platform/system_log.h"
#include "platform/this_program.h"
#include "tvk/event_manager.h"

namespace {

constexpr std::uint32_t kNeverStarted = 1077;  // ERROR_SERVICE_NEVER_STARTED

/// The component, open for as long as the object lives.
class OpenComponent {
 public:
  explicit OpenComponent(const ServiceOptions& options, TVK::RecordObserver observer = {},
                         TVK::RemarkObserver remarks = {})
      : result_(TVK::Component::Open(options.component, std::move(observer), std::move(remarks))) {}
  ~OpenComponent() { TVK::Component::Close(); }
  OpenComponent(const OpenComponent&) = delete;
  OpenComponent& operator=(const OpenComponent&) = delete;

  const std::string& message() const { return result_.message; }
  int exit_code() const {
    switch (result_.outcome) {
      case TVK::ComponentOutcome::kReady:
        return kExitOk;
      case TVK::ComponentOutcome::kWrongConfiguration:
        return kExitWrongConfiguration;
      case TVK::ComponentOutcome::kFailed:
        return kExitFailed;
    }
    return kExitFailed;
  }

 private:
  const TVK::ComponentResult result_;
};

std::string StateText(const platform::ServiceReport& report) {
  switch (report.state) {
    case platform::ServiceState::kNotInstalled:
      return "not installed";
    case platform::ServiceState::kStopped:
      return report.exit_code == kNeverStarted ? "stopped, not started yet"
                                               : "stopped, exit code " + std::to_string(report.exit_code);
    case platform::ServiceState::kStartPending:
      return "starting";
    case platform::ServiceState::kRunning:
      return "running, process " + std::to_string(report.process_id);
    case platform::ServiceState::kStopPending:
      return "stopping";
    case platform::ServiceState::kOther:
      return "paused";
  }
  return "unknown";
}

// The command line of an installed service. It is started in the system's folder: paths are those of the installer's.
std::vector<std::wstring> InstalledArguments(const ServiceOptions& options) {
  std::vector<std::wstring> arguments;
  const TVK::ComponentOptions& component = options.component;
  for (const auto& [name, path] : {std::pair(L"--policy", component.policy_file),
                                   {L"--data-dir", component.data_folder},
                                   {L"--log-dir", component.log_folder},
                                   {L"--sysroot", component.sysroot}}) {
    if (path.empty()) continue;
    arguments.emplace_back(name);
    arguments.push_back(std::filesystem::absolute(path).wstring());
  }
  if (options.run_for) {
    arguments.emplace_back(L"--for");
    arguments.push_back(std::to_wstring(options.run_for->count()) + L"ms");
  }
  return arguments;
}

bool IsLogon(const std::optional<platform::SystemEvent>& event) {
  const auto* const change = event ? std::get_if<platform::SessionChange>(&*event) : nullptr;
  return change != nullptr && change->kind == platform::SessionChangeKind::kLogon;
}

EventManager* StartManager(SERVICE_STATUS_HANDLE handle) {
  EventManager* const manager = EventManager::GetInstance(handle);
  manager->Initialize(TVK::Component::device_id_agent());
  manager->InitAndStartEventMonitors();
  return manager;
}

void ForEachLine(const std::string& text, const std::function<void(const std::string& line)>& call) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    call(line);
}

// Tells whoever looks after the computer, each line on its own.
void TellAdministrator(const std::string& text) {
  ForEachLine(text, [](const std::string& line) { platform::WriteToSystemLog(line); });
}

// From the opened component to its end; the exit code.
int RunUntil(platform::Event& stop, platform::Runtime& runtime, const ServiceOptions& options, ConsoleOutput& output) {
  TVK::RecordObserver show;
  if (options.console) show = [&](const std::string& line) { output.Show(line); };
  const auto complain = [&](const std::string& text) {
    if (options.console) return output.Complain(text);
    ForEachLine(text,
                [&](const std::string& line) { output.Complain(std::string(platform::SystemLogErrorMark()) + line); });
    TellAdministrator(text);
  };
  OpenComponent component(options, show, complain);
  if (!component.message().empty()) complain(component.message());
  if (component.exit_code() != kExitOk) return component.exit_code();
  if (options.console) output.Show(TVK::Component::RecordHeader());
  EventManager* const manager = StartManager(nullptr);
  platform::NotifyServiceManager("READY=1");
  runtime.Wait(stop, options.run_for.value_or(platform::kForever));
  platform::NotifyServiceManager("STOPPING=1");
  manager->Stop();
  return kExitOk;
}

}  // namespace

int RunInProcess(const ServiceOptions& options) {
  const auto runtime = platform::MakeRealRuntime({});
  const auto stop = runtime->MakeEvent(platform::EventReset::kManual);
  // Before any other thread starts: they inherit how the signals are dealt with. Until the output has ended, too.
  std::string problem;
  const auto interrupts = platform::InterruptWatcher::Start({.stop = [&] { stop->Set(); },
                                                             .reload = [] { TVK::Component::RereadPolicy(); },
                                                             .ends_with_terminal = options.console},
                                                            &problem);
  if (interrupts == nullptr) {
    std::cerr << "the service could not be stopped properly, so it does not start: " << problem << '\n';
    return kExitFailed;
  }
  ConsoleOutput output;
  const int exit_code = RunUntil(*stop, *runtime, options, output);
  // Everything but the output has ended properly by now.
  if (!output.Finish()) std::_Exit(exit_code);
  return exit_code;
}

std::optional<int> RunUnderServiceManager(const ServiceOptions& options) {
  const auto runtime = platform::MakeRealRuntime({});
  const auto stop = runtime->MakeEvent(platform::EventReset::kManual);
  // Controls that come before the manager is there have nobody to go to.
  std::atomic<EventManager*> running = nullptr;
  platform::ServiceProgram program;
  program.main = [&](platform::ServiceSession& session) {
    OpenComponent component(options, {}, TellAdministrator);
    TellAdministrator(component.message());
    if (component.exit_code() != kExitOk) return component.exit_code();
    EventManager* const manager = StartManager(static_cast<SERVICE_STATUS_HANDLE>(session.status_handle()));
    running = manager;
    session.ReportRunning();
    TVK::Component::OnUserLogon();  // whoever logged on before that was told to nobody
    runtime->Wait(*stop, options.run_for.value_or(platform::kForever));
    session.ReportStopping(std::chrono::seconds(5));
    manager->Stop();
    return static_cast<int>(kExitOk);
  };
  program.control = [&](unsigned long control, unsigned long event_type, void* event_data, void* context) {
    EventManager* const manager = running;
    if (manager != nullptr && IsLogon(platform::DecodeServiceControl(control, event_type, event_data))) {
      TVK::Component::OnUserLogon();
    }
    return manager == nullptr ? 0 : manager->OnServiceControlHandle(control, event_type, event_data, context);
  };
  program.stop = [&] { stop->Set(); };
  const platform::ServiceRun run = platform::RunServiceProgram(program);
  if (!run.served) return std::nullopt;
  return run.exit_code;
}

int ControlService(const ServiceOptions& options) {
  constexpr std::chrono::milliseconds kPatience = std::chrono::seconds(30);
  std::string problem;
  switch (options.command) {
    case ServiceCommand::kInstall: {
      platform::ServiceInstallation installation;
      installation.program = platform::ThisProgram();
      installation.arguments = InstalledArguments(options);
      installation.display_name = L"TVK client service";
      installation.description = L"Collects the device telemetry that the telemetry policy asks for.";
      problem = platform::InstallService(installation);
      break;
    }
    case ServiceCommand::kUninstall:
      problem = platform::UninstallService(kPatience);
      break;
    case ServiceCommand::kStart:
      problem = platform::LaunchService({}, kPatience);
      if (!problem.empty()) problem += "; --help lists the exit codes, the system's log of applications says why";
      break;
    case ServiceCommand::kStop:
      problem = platform::HaltService(kPatience);
      break;
    case ServiceCommand::kStatus: {
      const platform::ServiceReport report = platform::ReadServiceReport();
      problem = report.problem;
      if (problem.empty()) std::cout << StateText(report) << '\n';
      break;
    }
    case ServiceCommand::kRun:
      break;
  }
  if (problem.empty()) return kExitOk;
  std::cerr << problem << '\n';
  return kExitFailed;
}
