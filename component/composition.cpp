#include "component/composition.h"

#include "client/records/record_text.h"
#include "client/text/record_time.h"
#include "component/component_datasets.h"
#include "platform/files.h"
#include "platform/local.h"
#include "platform/this_program.h"

using TVK::ComponentOutcome;

namespace {

// Adds a remark; the first outcome that is not ready stays.
void Report(TVK::ComponentResult& result, ComponentOutcome outcome, const std::string& message) {
  if (result.outcome == ComponentOutcome::kReady) result.outcome = outcome;
  if (!result.message.empty()) result.message += '\n';
  result.message += message;
}

void ReportPolicy(TVK::ComponentResult& result, const std::filesystem::path& file, const PolicyLoad& load,
                  bool in_force) {
  for (const PolicyProblem& problem : load.problems)
    Report(result, ComponentOutcome::kReady, ProblemLine(file, problem));
  if (!load.accepted && in_force) {
    Report(result, ComponentOutcome::kReady,
           platform::PathToUtf8(file) + ": cannot be used; the last good one is in force");
  }
}

TVK::StoreOptions StoreIn(const std::filesystem::path& folder) {
  TVK::StoreOptions options;
  options.file = folder / TVK::kStoreFileName;
  return options;
}

}  // namespace

Composition::Places Composition::ResolvePlaces(const TVK::ComponentOptions& options) {
  const platform::DefaultPlaces defaults = platform::GetDefaultPlaces();
  const auto or_default = [](const std::filesystem::path& given, const std::filesystem::path& standard) {
    return given.empty() ? standard : std::filesystem::absolute(given);
  };
  Places places;
  places.policy_file = or_default(options.policy_file, defaults.policy_file);
  places.tvk_policy_file = places.policy_file.parent_path() / "client-policy.json";
  places.data_folder = or_default(options.data_folder, defaults.data_folder);
  // A host that has its own data folder is another installation: it keeps its logs and its events to itself.
  places.log_folder =
      or_default(options.log_folder, options.data_folder.empty() ? defaults.log_folder : places.data_folder / "log");
  places.named_event_folder = options.data_folder.empty() ? defaults.named_event_folder : places.data_folder / "run";
  places.sysroot = options.sysroot.empty() ? std::filesystem::path("/") : std::filesystem::absolute(options.sysroot);
  return places;
}

Composition::Composition(const Places& places, TVK::RemarkObserver remarks)
    : runtime_(platform::MakeRealRuntime({.named_event_folder = places.named_event_folder})),
      machine_(platform::OpenLocalMachine({.sysroot = places.sysroot}, runtime_->clock())),
      policy_agent_({.telemetry_policy = places.policy_file,
                     .tvk_policy = places.tvk_policy_file,
                     .last_good = places.data_folder / "policy.last-good.json",
                     .tvk_last_good = places.data_folder / "client-policy.last-good.json"}),
      store_(StoreIn(places.data_folder), runtime_->clock()),
      bus_(*runtime_),
      machine_information_(*machine_, runtime_->clock()),
      region_information_(machine_->region(), runtime_->clock()),
      tvk_info_(TVK::System::GetTime(runtime_->clock())),
      device_id_agent_(machine_->system(), machine_->firmware()),
      datasets_(MakeComponentDatasets()),
      user_process_(*runtime_, platform::ThisProgram().parent_path()),
      policy_watch_(*runtime_, policy_agent_, bus_, {places.policy_file, places.tvk_policy_file}, std::move(remarks)),
      device_context_monitor_(*runtime_, *machine_, machine_information_),
      manager_services_{*runtime_,           *machine_, store_,    policy_agent_, bus_, machine_information_,
                        region_information_, tvk_info_, datasets_, user_process_} {}

Composition::~Composition() {
  store_.SetRecordListener(nullptr);
}

std::unique_ptr<Composition> Composition::Open(const TVK::ComponentOptions& options, TVK::RecordObserver observer,
                                               TVK::RemarkObserver remarks, TVK::ComponentResult& result) {
  const Places places = ResolvePlaces(options);
  if (std::error_code failure; !options.sysroot.empty() && !std::filesystem::is_directory(places.sysroot, failure)) {
    // A machine of which nothing can be read would be described all the same.
    Report(result, ComponentOutcome::kWrongConfiguration,
           platform::PathToUtf8(places.sysroot) + ": there is no such folder to read the machine from");
    return nullptr;
  }
  for (const std::filesystem::path& folder : {places.data_folder, places.log_folder}) {
    const std::string problem = platform::MakePrivateFolder(folder);
    if (!problem.empty()) Report(result, ComponentOutcome::kWrongConfiguration, problem);
  }
  TVK::SetLogBackend(TVK::MakeFileLogBackend(places.log_folder));
  std::unique_ptr<Composition> composition(new Composition(places, std::move(remarks)));
  // In a folder that cannot be used it cannot be opened either, and the log of its reasons may be missing.
  const std::string& opening_problem = composition->store_.opening_problem();
  if (!opening_problem.empty() && result.outcome == ComponentOutcome::kReady) {
    const bool open = composition->store_.is_open();
    Report(result, open ? ComponentOutcome::kReady : ComponentOutcome::kFailed,
           "the event store in " + platform::PathToUtf8(places.data_folder) + (open ? ": " : " cannot be opened: ") +
               opening_problem);
  }
  // Watch first, then read: a change in between is then seen as a change.
  const std::string watch_problem = composition->policy_watch_.Start();
  const PolicyLoad load = composition->policy_agent_.LoadTelemetryPolicy();
  const PolicyLoad tvk_load = composition->policy_agent_.LoadTvkPolicy();
  composition->policy_agent_.KeepLastGood();
  TelemetryPolicy policy;
  TvkPolicy tvk_policy;
  const bool policy_in_force = composition->policy_agent_.GetTelemetryPolicy(policy);
  const bool tvk_policy_in_force = composition->policy_agent_.GetTvkPolicy(tvk_policy);
  ReportPolicy(result, places.policy_file, load, policy_in_force);
  ReportPolicy(result, places.tvk_policy_file, tvk_load, tvk_policy_in_force);
  // Before the manager reads the facts for the first time: a change after that is then never missed.
  composition->device_context_monitor_.Start();
  composition->manager_services_.region_change_event =
      composition->device_context_monitor_.getRegionChangeEventHandle();
  if (!policy_in_force) {
    Report(result, ComponentOutcome::kWrongConfiguration, "there is no telemetry policy to run with");
  }
  if (!watch_problem.empty()) Report(result, ComponentOutcome::kReady, watch_problem);
  if (observer) {
    composition->store_.SetRecordListener(
        [observer = std::move(observer)](TVK::RecordKind kind, const std::string& json) {
          observer(TVK::RecordTableLine(kind, json));
        });
  }
  return composition;
}
