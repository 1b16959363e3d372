#include "component/composition.h"

#include "client/log/guarded_thread.h"
#include "component/component_datasets.h"
#include "platform/system_facts.h"
#include "platform/this_program.h"

namespace TVK {
namespace {

// What tells of nothing but problems tells them to `remarks`.
std::function<void(const std::string& line)> Problems(const RemarkObserver& remarks) {
  if (!remarks) return {};
  return [remarks](const std::string& line) { remarks(RemarkWeight::kProblem, line); };
}

}  // namespace

Composition::PolicyFiles::PolicyFiles(platform::Runtime& runtime, TVKPublisherSubscriber& bus, const Places& places,
                                      RemarkObserver remarks)
    : agent({.telemetry_policy = places.policy_file,
             .tvk_policy = places.tvk_policy_file(),
             .last_good = places.data_folder / kLastGoodPolicyFileName,
             .tvk_last_good = places.data_folder / "client-policy.last-good.json"}),
      watch(runtime, agent, bus, {places.policy_file, places.tvk_policy_file()}, std::move(remarks)) {}

Composition::Composition(platform::Runtime& runtime, platform::Machine& machine, const Places& places,
                         const Parts& parts, RemarkObserver remarks)
    : runtime_(runtime),
      machine_(machine),
      store_({.file = places.data_folder / kStoreFileName, .limits = {}, .remarks = Problems(remarks)},
             runtime.clock()),
      eraser_(runtime, &store_, {places.data_folder, places.log_folder}, Eraser::Rest::kTriedAgain),
      bus_(runtime),
      machine_services_(machine, runtime),
      own_datasets_(parts.datasets == nullptr ? std::optional(MakeComponentDatasets()) : std::nullopt),
      manager_services_{
          runtime,
          machine,
          store_,
          parts.config != nullptr ? *parts.config : policy_files_.emplace(runtime, bus_, places, remarks).agent,
          bus_,
          machine_services_.machine_information,
          machine_services_.region_information,
          machine_services_.tvk_info,
          machine_services_.hard_disks,
          machine_services_.batteries,
          parts.datasets != nullptr ? *parts.datasets : *own_datasets_,
          parts.user_process != nullptr
              ? *parts.user_process
              : own_user_process_.emplace(runtime, platform::ThisProgram().parent_path(), places.channel),
          parts.region_change,
          Problems(remarks)},
      status_({.runtime = runtime,
               .tvk_info = machine_services_.tvk_info,
               .store = store_,
               .store_file = places.data_folder / kStoreFileName,
               .policy_file = parts.config == nullptr ? places.policy_file : std::filesystem::path(),
               .errors = parts.errors,
               .policy_standing = policy_files_
                                      ? std::function([this] { return policy_files_->agent.telemetry_standing(); })
                                      : std::function<PolicyStanding()>()}) {
  eraser_.Finish();
  if (parts.region_change == nullptr) {
    device_context_monitor_.emplace(runtime, machine, machine_services_.machine_information);
  }
}

Composition::~Composition() {
  store_.SetRecordListener(nullptr);
}

Composition::Opening Composition::Start() {
  Opening opening;
  if (policy_files_) {
    // Watch first, then read: a change in between is then seen as a change.
    opening.watch_problem = policy_files_->watch.Start();
    // What is not there when the service starts is gone: without a policy nobody has consented.
    opening.policy = policy_files_->agent.LoadTelemetryPolicy(true);
    opening.tvk_policy = policy_files_->agent.LoadTvkPolicy(true);
    if (!policy_files_->agent.KeepLastGood()) policy_files_->watch.Reread();
  }
  TelemetryPolicy policy;
  opening.policy_in_force = manager_services_.config.GetTelemetryPolicy(policy);
  if (device_context_monitor_) {
    // Before the manager reads the facts for the first time: a change after that is then never missed.
    device_context_monitor_->Start();
    manager_services_.region_change_event = device_context_monitor_->getRegionChangeEventHandle();
  }
  return opening;
}

void Composition::FollowSystemEvents(platform::SystemEventCallback receiver, void* service) {
  system_events_.reset();
  if (receiver) system_events_.emplace(machine_.system_events(), runtime_, service, std::move(receiver));
}

void Composition::ServeChannel(ManagerAccess* manager, const std::filesystem::path& place) {
  channel_.reset();
  if (manager == nullptr) return;
  std::string problem;
  try {
    channel_.emplace(runtime_, manager_services_.config, status_, *manager, eraser_);
    problem = channel_->Start(
        place, [this](std::uint32_t session) { return own_user_process_ && own_user_process_->RunsIn(session); });
  } catch (const std::exception& failure) {
    channel_.reset();
    problem = FailureText(failure);
  }
  if (!problem.empty() && manager_services_.remarks) {
    manager_services_.remarks("no other process can reach the service: " + problem);
  }
}

void Composition::RereadPolicy() {
  if (policy_files_) policy_files_->watch.Reread();
}

void Composition::OnUserLogon() {
  if (machine_.system().ReadLoggedInUserId().empty()) return;  // to be told at the next logon
  if (device_context_monitor_) device_context_monitor_->TryAddUserRelatedMonitors();
  if (own_user_process_) own_user_process_->OnUserLogon();
}

void Composition::OnSessionChange(const platform::SessionChange& change) {
  if (device_context_monitor_) device_context_monitor_->OnSessionChange(change);
  if (own_user_process_) own_user_process_->OnSessionChange(change);
}

}  // namespace TVK
