#include "apps/service/service_host.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <mutex>
#include <sstream>
#include <utility>
#include <variant>
#include <vector>

#include "apps/service/console_output.h"
#include "client/records/record_text.h"
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
// `problem` receives what speaks against it.
std::vector<std::wstring> InstalledArguments(const ServiceOptions& options, std::string& problem) {
  std::vector<std::wstring> arguments;
  const TVK::ComponentOptions& component = options.component;
  for (const auto& [name, path] : {std::pair(L"--policy", component.policy_file),
                                   {L"--data-dir", component.data_folder},
                                   {L"--log-dir", component.log_folder},
                                   {L"--sysroot", component.sysroot}}) {
    if (path.empty()) continue;
    const std::filesystem::path absolute = std::filesystem::absolute(path);
    if (problem.empty()) problem = platform::WhyNoServiceReaches(absolute);
    arguments.emplace_back(name);
    arguments.push_back(absolute.wstring());
  }
  if (options.run_for) {
    arguments.emplace_back(L"--for");
    arguments.push_back(std::to_wstring(options.run_for->count()) + L"ms");
  }
  return arguments;
}

/// Session changes on their way from the control handler to the service's own thread: what follows from them takes
/// longer than the service manager may be kept waiting. Any thread.
class SessionNews {
 public:
  explicit SessionNews(platform::Runtime& runtime) : arrived_(runtime.MakeEvent(platform::EventReset::kAuto)) {}

  /// Takes it along when the control is one.
  void Put(unsigned long control, unsigned long event_type, void* event_data) {
    const auto event = platform::DecodeServiceControl(control, event_type, event_data);
    const auto* const change = event ? std::get_if<platform::SessionChange>(&*event) : nullptr;
    if (change == nullptr) return;
    {
      const std::lock_guard lock(mutex_);
      changes_.emplace_back(event_type, change->session);
    }
    arrived_->Set();
  }

  platform::Event& arrived() { return *arrived_; }

  /// Tells the component what has come, in that order.
  void Tell() {
    const auto changes = [this] {
      const std::lock_guard lock(mutex_);
      return std::exchange(changes_, {});
    }();
    for (const auto& [event_type, session] : changes)
      TVK::Component::OnSessionChange(event_type, session);
  }

 private:
  const std::unique_ptr<platform::Event> arrived_;
  std::mutex mutex_;                                              ///< Guards changes_.
  std::vector<std::pair<unsigned long, unsigned long>> changes_;  ///< Event type and session of each.
};

/// Until `stop`, or until `run_for` of waking time is over.
void Serve(platform::Runtime& runtime, platform::Event& stop, SessionNews& sessions,
           std::optional<std::chrono::milliseconds> run_for) {
  const platform::SteadyTime start = runtime.clock().Steady();
  platform::Waitable* const objects[] = {&stop, &sessions.arrived()};
  for (;;) {
    const auto passed = std::chrono::floor<std::chrono::milliseconds>(runtime.clock().Steady() - start);
    const auto left = run_for ? std::max(*run_for - passed, std::chrono::milliseconds(0)) : platform::kForever;
    if (runtime.WaitAny(objects, left) != 1) return;
    sessions.Tell();
  }
}

// Null when there is too little of something for one that runs; a remark says of what.
EventManager* StartManager(SERVICE_STATUS_HANDLE handle) {
  EventManager* const manager = EventManager::GetInstance(handle);
  if (manager == nullptr) return nullptr;
  manager->Initialize(TVK::Component::device_id_agent());
  // One that is deaf to its policy is better started anew.
  if (!manager->is_initialized() || !manager->FollowsNews()) return nullptr;
  manager->InitAndStartEventMonitors();
  return manager;
}

void ForEachLine(const std::string& text, const std::function<void(const std::string& line)>& call) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    call(line);
}

platform::SystemLogPriority PriorityOf(TVK::RemarkWeight weight) {
  return weight == TVK::RemarkWeight::kProblem ? platform::SystemLogPriority::kError
                                               : platform::SystemLogPriority::kNotice;
}

// Tells whoever looks after the computer, each line on its own.
void TellAdministrator(TVK::RemarkWeight weight, const std::string& text) {
  const platform::SystemLogPriority priority = PriorityOf(weight);
  ForEachLine(text, [&](const std::string& line) { platform::WriteToSystemLog(priority, line); });
}

std::string ConsoleLine(const TVK::WrittenRecord& record) {
  TVK::RecordKind kind = TVK::RecordKind::kItem;
  if (std::holds_alternative<DatasetContext>(record.content)) kind = TVK::RecordKind::kDataset;
  if (std::holds_alternative<DeviceContext>(record.content)) kind = TVK::RecordKind::kDevice;
  return TVK::RecordTableLine(kind, record.json);
}

// From the opened component to its end; the exit code.
int RunUntil(platform::Event& stop, platform::Runtime& runtime, const ServiceOptions& options, ConsoleOutput& output) {
  TVK::RecordObserver show;
  if (options.console) show = [&](const TVK::WrittenRecord& record) { output.Show(ConsoleLine(record)); };
  const auto remark = [&](TVK::RemarkWeight weight, const std::string& text) {
    // The journal names the program by itself.
    const std::string mark = platform::SystemLogMark(PriorityOf(weight));
    const std::string begin = mark.empty() ? "TVKClientService: " : mark;
    ForEachLine(text, [&](const std::string& line) { output.Complain(begin + line); });
    if (!options.console) TellAdministrator(weight, text);
  };
  OpenComponent component(options, show, remark);
  if (!component.message().empty()) remark(TVK::RemarkWeight::kProblem, component.message());
  if (component.exit_code() != kExitOk) return component.exit_code();
  if (options.console) output.Show(TVK::RecordTableHeader());
  EventManager* const manager = StartManager(nullptr);
  if (manager == nullptr) return kExitFailed;
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
    std::cerr << "TVKClientService: the service could not be stopped properly, so it does not start: " << problem
              << '\n';
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
  SessionNews sessions(*runtime);
  // Controls that come before the manager is there, or when it is ending, have nobody to go to.
  std::mutex running_mutex;  // guards running, while it is called too
  EventManager* running = nullptr;
  const auto let_run = [&](EventManager* manager) {
    const std::lock_guard lock(running_mutex);
    running = manager;
  };
  platform::ServiceProgram program;
  program.main = [&](platform::ServiceSession& session) {
    OpenComponent component(options, {}, TellAdministrator);
    TellAdministrator(TVK::RemarkWeight::kProblem, component.message());
    if (component.exit_code() != kExitOk) return component.exit_code();
    EventManager* const manager = StartManager(static_cast<SERVICE_STATUS_HANDLE>(session.status_handle()));
    if (manager == nullptr) return static_cast<int>(kExitFailed);
    let_run(manager);
    session.ReportRunning();
    TVK::Component::OnUserLogon();  // whoever logged on before that was told to nobody
    Serve(*runtime, *stop, sessions, options.run_for);
    session.ReportStopping(platform::kServiceStopLimit);
    let_run(nullptr);
    manager->Stop();
    return static_cast<int>(kExitOk);
  };
  program.control = [&](unsigned long control, unsigned long event_type, void* event_data, void* context) {
    sessions.Put(control, event_type, event_data);
    const std::lock_guard lock(running_mutex);
    return running == nullptr ? 0 : running->OnServiceControlHandle(control, event_type, event_data, context);
  };
  program.stop = [&] { stop->Set(); };
  const platform::ServiceRun run = platform::RunServiceProgram(program);
  if (!run.served) return std::nullopt;
  TellAdministrator(TVK::RemarkWeight::kProblem, run.problem);
  return run.exit_code;
}

int ControlService(const ServiceOptions& options) {
  constexpr std::chrono::milliseconds kPatience = std::chrono::seconds(30);
  std::string problem;
  switch (options.command) {
    case ServiceCommand::kInstall: {
      platform::ServiceInstallation installation;
      installation.program = platform::ThisProgram();
      problem = platform::WhyNoServiceReaches(installation.program);
      installation.arguments = InstalledArguments(options, problem);
      installation.display_name = L"TVK client service";
      installation.description = L"Collects the device telemetry that the telemetry policy asks for.";
      if (problem.empty()) problem = platform::InstallService(installation);
      break;
    }
    case ServiceCommand::kUninstall:
      problem = platform::UninstallService(kPatience);
      break;
    case ServiceCommand::kStart:
      problem = platform::LaunchService({}, kPatience);
      if (!problem.empty() && platform::ReadServiceReport().problem.empty()) {
        problem += "; --help lists the exit codes, the system's log of applications says why";
      }
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
  std::cerr << "TVKClientService: " << problem << '\n';
  return kExitFailed;
}
