#include "bench/world.h"

#include <algorithm>
#include <fstream>
#include <sstream>

#include "bench/targets.h"
#include "component/component_datasets.h"
#include "platform/local.h"
#include "platform/simulated/simulated_firmware.h"
#include "platform/simulated/simulated_processors.h"
#include "platform/simulated/simulated_system.h"

namespace {

constexpr std::chrono::seconds kPatience{30};

/// A monitor of the component, which tells what is done with it.
class WatchedMonitor final : public EventMonitorBase {
 public:
  WatchedMonitor(std::unique_ptr<EventMonitorBase> monitor, const TVK::MonitorServices& services, Progress& progress)
      : EventMonitorBase(nullptr, false, services), monitor_(std::move(monitor)), progress_(progress) {
    progress_.Add(progress_.alive, 1);
  }
  ~WatchedMonitor() override {
    monitor_ = nullptr;
    progress_.Add(progress_.alive, -1);
  }

  void Initialize() override { monitor_->Initialize(); }
  void UnInitialize() override { monitor_->UnInitialize(); }
  void StartMonitor(std::wstring name) override {
    progress_.Add(progress_.entered, 1);
    monitor_->StartMonitor(std::move(name));
    progress_.Add(progress_.returned, 1);
  }
  void StopMonitor() override { monitor_->StopMonitor(); }
  void RestartMonitor() override { monitor_->RestartMonitor(); }
  std::wstring GetName() const override { return monitor_->GetName(); }
  void ReadAndUpdateDatasetSettings() override { monitor_->ReadAndUpdateDatasetSettings(); }
  void LogDatasetContext(bool new_context_needed) override { monitor_->LogDatasetContext(new_context_needed); }
  int LogDevInitEvent() override { return monitor_->LogDevInitEvent(); }

 private:
  std::unique_ptr<EventMonitorBase> monitor_;
  Progress& progress_;
};

TVK::DatasetTable WatchedDatasets(Progress& progress) {
  std::vector<TVK::Dataset> datasets = TVK::MakeComponentDatasets().datasets();
  for (TVK::Dataset& dataset : datasets) {
    if (!dataset.factory) continue;
    dataset.factory = [make = dataset.factory, &progress](const TVK::MonitorServices& services) {
      return std::make_unique<WatchedMonitor>(make(services), services, progress);
    };
  }
  return TVK::DatasetTable(std::move(datasets));
}

/// The logs' files as always; and the line that ends a reconciliation, which the manager tells nobody else.
class WatchedLogs final : public TVK::LogBackend {
 public:
  WatchedLogs(const std::filesystem::path& folder, Progress& progress)
      : files_(TVK::MakeFileLogBackend(folder)), progress_(progress) {}

  std::shared_ptr<TVK::LogSink> Open(const std::wstring& file_name) override {
    std::shared_ptr<TVK::LogSink> file = files_->Open(file_name);
    if (file_name != L"EventManager.log") return file;
    return std::make_shared<Sink>(std::move(file), progress_);
  }

 private:
  class Sink final : public TVK::LogSink {
   public:
    Sink(std::shared_ptr<TVK::LogSink> file, Progress& progress) : file_(std::move(file)), progress_(progress) {}
    void Write(TVK::LogSeverity severity, std::wstring_view message) override {
      file_->Write(severity, message);
      if (message == L"EventManager::OnTelemetryScopeChanges : End") progress_.Add(progress_.reconciled, 1);
    }

   private:
    const std::shared_ptr<TVK::LogSink> file_;
    Progress& progress_;
  };

  const std::shared_ptr<TVK::LogBackend> files_;
  Progress& progress_;
};

std::filesystem::path MadeAnew(std::filesystem::path folder) {
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder / "log");
  std::ofstream(folder / "policy.json", std::ios::binary) << World::Policy(true);
  return folder;
}

}  // namespace

class World::Manager final : public EventManager {
 public:
  explicit Manager(const TVK::ManagerServices& services) : EventManager(services, nullptr) { set_schema_ver(L"2.0"); }
  ~Manager() override = default;
};

void Progress::WaitUntil(const std::function<bool()>& reached) {
  while (!reached())
    Check(runtime_.Wait(*changed_, kPatience) == 0, "waiting for the monitors");
}

World::World(std::filesystem::path folder)
    : folder_(MadeAnew(std::move(folder))),
      policy_file_(folder_ / "policy.json"),
      runtime_(platform::MakeRealRuntime({.named_event_folder = folder_ / "run"})),
      progress_(*runtime_),
      datasets_(WatchedDatasets(progress_)) {
  TVK::SetLogBackend(std::make_shared<WatchedLogs>(folder_ / "log", progress_));
  composition_ = std::make_unique<TVK::Composition>(
      *runtime_, machine_, TVK::Composition::Places{.data_folder = folder_, .policy_file = policy_file_},
      TVK::Composition::Parts{
          .config = nullptr, .datasets = &datasets_, .user_process = &user_agent_, .region_change = nullptr});
  Check(composition_->store().is_open(), "opening the store");
  const TVK::Composition::Opening opening = composition_->Start();
  Check(opening.watch_problem.empty(), "watching the policy");
  Check(opening.policy.state == TVK::PolicyFileState::kGood, "reading the policy");
  manager_ = std::make_unique<Manager>(composition_->manager_services());
}

World::~World() {
  manager_->Stop();
  manager_ = nullptr;
  composition_ = nullptr;
  TVK::SetLogBackend(nullptr);
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

std::string World::Policy(bool enabled) {
  std::ostringstream text;
  text << std::ifstream(std::filesystem::path(TVK_CONFIG_FOLDER) / "policy.default.json", std::ios::binary).rdbuf();
  std::string policy = text.str();
  Check(!policy.empty(), "reading the default policy");
  const std::string on = "\"enabled\": true";
  const std::string off = "\"enabled\": false";
  for (std::size_t at = policy.find(on); !enabled && at != std::string::npos; at = policy.find(on, at))
    policy.replace(at, on.size(), off);
  return policy;
}

int World::StartManager() {
  manager_->Initialize(&composition_->machine_services().device_ids);
  manager_->InitAndStartEventMonitors();
  return static_cast<int>(manager_->get_eventmonitor_list().size());
}

int World::MonitorsOutsidePolicy() const {
  return static_cast<int>(std::ranges::count_if(datasets_.datasets(), [](const TVK::Dataset& dataset) {
    return dataset.row.rule == TVK::DatasetRule::kAlways || dataset.row.rule == TVK::DatasetRule::kApplication;
  }));
}

platform::SteadyTime World::ReplacePolicy(const std::string& text) {
  const std::filesystem::path beside = folder_ / "policy.json.new";
  Check(static_cast<bool>(std::ofstream(beside, std::ios::binary) << text << std::flush), "writing the policy");
  const platform::SteadyTime before = Now();
  std::filesystem::rename(beside, policy_file_);
  return before;
}
