// The component on a simulated machine: real runtime, real files, every dataset of the table, and monitors that tell
// how far they are.
#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "component/composition.h"
#include "platform/runtime.h"
#include "platform/simulated/simulated_machine.h"
#include "tvk/event_manager.h"

/// What monitors and manager have reached. Any thread.
class Progress {
 public:
  explicit Progress(platform::Runtime& runtime)
      : runtime_(runtime), changed_(runtime.MakeEvent(platform::EventReset::kAuto)) {}

  std::atomic<int> alive = 0;       ///< Monitors that were made and not deleted.
  std::atomic<int> entered = 0;     ///< Calls of StartMonitor.
  std::atomic<int> returned = 0;    ///< Calls of StartMonitor that came back.
  std::atomic<int> reconciled = 0;  ///< Ends of the manager's reconciliation with the policy.

  void Add(std::atomic<int>& count, int change) {
    count += change;
    changed_->Set();
  }

  /// Waits until `reached` holds; ends the program when that does not happen. One thread at a time.
  void WaitUntil(const std::function<bool()>& reached);

 private:
  platform::Runtime& runtime_;
  const std::unique_ptr<platform::Event> changed_;
};

/// A user agent that is nowhere: the benchmarks start no processes.
class AbsentUserAgent final : public UserProcessAgent {
 public:
  void SetDataSetEnable(bool /*enable*/) override {}
  bool StartUserProcess(platform::Event& /*stop_event*/) override { return false; }
  bool UserProcessRuns() override { return false; }
  void StopUserProcess(int /*reason*/) override {}
};

/// Everything below a folder, which the object makes anew and removes.
class World {
 public:
  explicit World(std::filesystem::path folder);
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  /// The policy that the component is shipped with, every dataset switched on or off.
  static std::string Policy(bool enabled);

  Progress& progress() { return progress_; }
  platform::SteadyTime Now() const { return runtime_->clock().Steady(); }

  /// Makes and starts the monitors of the policy in force; returns how many are listed.
  int StartManager();

  /// How many monitors there are whatever the policy says.
  int MonitorsOutsidePolicy() const;

  /// Puts a policy in place as editors do: written beside the file, then renamed over it. Returns the moment before the
  /// rename.
  platform::SteadyTime ReplacePolicy(const std::string& text);

 private:
  class Manager;

  const std::filesystem::path folder_;
  const std::filesystem::path policy_file_;
  const std::unique_ptr<platform::Runtime> runtime_;
  Progress progress_;
  platform::SimulatedMachine machine_;
  const TVK::DatasetTable datasets_;
  AbsentUserAgent user_agent_;
  std::unique_ptr<TVK::Composition> composition_;
  std::unique_ptr<Manager> manager_;
};
