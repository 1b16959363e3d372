// Lives of the whole event manager in a simulated or a real world, with monitors that a test scripts.
#pragma once

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <utility>

#include "component/composition.h"
#include "testing/monitor_world.h"
#include "tvk/event_manager.h"

/// What became of all scripted monitors of one table, and what they shall do. Any thread.
class MonitorScript {
 public:
  /// The places at which a monitor can be told to fail.
  enum class Place { kMake, kInitialize, kStart, kStop, kUnInitialize, kControl, kSettings, kContextChange, kRestart };

  /// Whose operation at a place does not return before an event is set; null: none.
  struct Gate {
    std::wstring dataset_name;
    Place place = Place::kStop;
    platform::Event* event = nullptr;
  };

  /// Adds "what dataset".
  void Note(const std::wstring& what, const std::wstring& dataset_name) {
    const std::lock_guard lock(mutex_);
    notes_.push_back(what + L" " + dataset_name);
  }
  /// The notes since the last call.
  std::vector<std::wstring> TakeNotes() {
    const std::lock_guard lock(mutex_);
    return std::exchange(notes_, {});
  }
  /// How many notes hold exactly this since the last TakeNotes.
  std::size_t Count(const std::wstring& note) const {
    const std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(std::ranges::count(notes_, note));
  }

  std::atomic<int> alive = 0;    ///< Monitors that exist.
  std::atomic<int> running = 0;  ///< Monitors between StartMonitor and StopMonitor.

  // Set these while the world stands still.
  std::pair<std::wstring, Place> failure;  ///< The dataset whose monitor fails, and where.
  Gate gate;
  std::pair<std::wstring, TVK::Shortage> shortage;  ///< What the dataset's monitor tells as it starts.

 private:
  mutable std::mutex mutex_;  ///< Guards what follows.
  std::vector<std::wstring> notes_;
};

/// The component's datasets with scripted monitors, which keep their threads until they are stopped.
TVK::DatasetTable ScriptedDatasets(MonitorScript& script);

/// The id of the component's dataset of this name.
std::wstring IdOf(const std::wstring& dataset_name);
/// A policy of the scope that lists these datasets of the component; all of them when none is given.
TelemetryPolicy PolicyOf(const std::wstring& scope, const std::vector<std::wstring>& dataset_names = {});

/// A manager that a test may make.
class TestManager final : public EventManager {
 public:
  explicit TestManager(const TVK::ManagerServices& services) : EventManager(services, nullptr) {}
  ~TestManager() override = default;

  using EventManager::access;
  using EventManager::OnSystemEvent;
};

/// A user agent that starts whenever it is asked. Any thread.
class RecordingUserProcess final : public UserProcessAgent {
 public:
  void SetDataSetEnable(bool enable) override { enabled = enable; }
  bool StartUserProcess(platform::Event& /*stop_event*/) override {
    ++starts;
    runs = true;
    return true;
  }
  bool UserProcessRuns() override { return runs; }
  void StopUserProcess(int reason) override {
    if (on_stop) on_stop();
    ++stops;
    runs = false;
    last_reason = reason;
  }

  std::atomic<bool> enabled = false;
  std::atomic<bool> runs = false;  ///< A test clears it for a process that ends by itself.
  std::atomic<int> starts = 0;
  std::atomic<int> stops = 0;
  std::atomic<int> last_reason = -1;
  std::function<void()> on_stop;  ///< What the process does when it is told to end.
};

class FixedDeviceIds final : public TVK::DeviceIdAgent {
 public:
  unsigned long GetDeviceID(std::wstring& id) override {
    if (throws) throw std::runtime_error("told to fail");
    id = L"DEVICE-ID";
    return 0;
  }
  unsigned long GetLegacyDeviceID(std::wstring& id) override {
    if (throws) throw 7;  // NOLINT(hicpp-exception-baseclass): anything may be thrown
    id = L"LEGACY-ID";
    return 0;
  }

  bool throws = false;
};

/// One run of the service with its manager. `table` must outlive it.
class ManagerLife {
 public:
  ManagerLife(MonitorWorld& world, const TVK::DatasetTable& table)
      : ManagerLife(world.runtime, world.machine, world.config, world.folder, table) {}
  ManagerLife(platform::Runtime& runtime, platform::Machine& machine, SettableConfigAgent& config_agent,
              const TempFolder& folder, const TVK::DatasetTable& table);
  /// Stops the manager.
  ~ManagerLife();
  ManagerLife(const ManagerLife&) = delete;
  ManagerLife& operator=(const ManagerLife&) = delete;

  /// What the service does at its start.
  void Start();
  /// Puts the policy in force and tells of it on the bus.
  void Change(TelemetryPolicy policy);
  /// The names of the listed monitors.
  std::vector<std::wstring> Listed() const { return manager.get_eventmonitor_list(); }

  SettableConfigAgent& config;
  RecordingUserProcess user_process;
  FixedDeviceIds device_ids;
  const std::unique_ptr<platform::Event> region_changed;
  TVK::Composition composition;
  RecordCollector records;
  TestManager manager;
};
