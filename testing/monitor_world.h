// A small world in which monitors and the manager live as in the service: a clock that the test moves, a scripted
// machine, a policy that the test sets, and a real store on a temporary folder.
//
//   MonitorWorld world;
//   world.config.SetPolicy(policy);
//   ServiceLife life(world);
//   {
//     RunningMonitor monitor(world.runtime, std::make_unique<CpuEventMonitor>(life.services()));
//     world.runtime.AdvanceBy(1min);
//   }
//   EXPECT_EQ(life.Items(L"ReadUsagePerInterval").size(), 1u);
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "client/machine/machine_services.h"
#include "framework/event_monitor_base.h"
#include "platform/simulated/simulated_machine.h"
#include "platform/simulated/virtual_runtime.h"
#include "testing/log_capture.h"
#include "testing/record_collector.h"
#include "testing/temp_folder.h"

/// Policies that the test sets; none at first. Any thread.
class SettableConfigAgent final : public IConfigAgent {
 public:
  void SetPolicy(std::optional<TelemetryPolicy> policy) {
    const std::lock_guard lock(mutex_);
    policy_ = std::move(policy);
  }
  void SetTvkPolicy(std::optional<TVK::TvkPolicy> policy) {
    const std::lock_guard lock(mutex_);
    tvk_policy_ = std::move(policy);
  }
  /// Replaces the settings of the policy's datasets of this name.
  void SetSettings(const std::wstring& dataset_name, std::map<std::wstring, std::wstring> settings);

  bool GetTelemetryPolicy(TelemetryPolicy& policy) override { return Get(policy_, policy); }
  bool GetTvkPolicy(TVK::TvkPolicy& policy) override { return Get(tvk_policy_, policy); }

 private:
  template <typename Policy>
  bool Get(const std::optional<Policy>& from, Policy& to) {
    const std::lock_guard lock(mutex_);
    if (from.has_value()) to = *from;
    return from.has_value();
  }

  std::mutex mutex_;  ///< Guards what follows.
  std::optional<TelemetryPolicy> policy_;
  std::optional<TVK::TvkPolicy> tvk_policy_;
};

/// The manager as monitors see it, without one. Set it before monitors run.
class SettableManagerIdentity final : public TVK::ManagerIdentity {
 public:
  SERVICE_STATUS_HANDLE get_svrHandle() override { return nullptr; }
  std::wstring get_schema_ver() override { return L"2.0"; }
  /// device_context_id; it stands in the store of the service's life, as records that name it need it there.
  std::wstring get_device_context_id() override;
  bool get_FirstInvocation() override { return first_invocation; }
  int DecideTVKVer(std::wstring /*version*/) override { return version_answer; }
  bool IsOfThisClient(const std::wstring& id) override { return id == device_context_id; }
  bool get_NeedToLogDatasetContextOnChange() override { return false; }

  std::wstring device_context_id = L"DEVICE-CONTEXT";
  bool first_invocation = false;
  int version_answer = 0;
  TVK::EventDataLogging* store = nullptr;  ///< Set by the service's life.

 private:
  std::mutex mutex_;  ///< Held while the store is asked and told.
};

/// Keeps the news that is told instead of telling it. Any thread.
class NewsRecorder final : public TVK::NewsPublisher {
 public:
  void Publish(TVKNotificationData data) override {
    const std::lock_guard lock(mutex_);
    news_.push_back(std::move(data));
  }
  std::vector<TVKNotificationData> Take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(news_, {});
  }

 private:
  std::mutex mutex_;  ///< Guards news_.
  std::vector<TVKNotificationData> news_;
};

/// A consent that the test gives and withdraws. Any thread.
class SettableConsent final : public TVK::Consent {
 public:
  bool Admits(const TVK::DatasetRow& row) override {
    const wchar_t* const in_force = scope;
    return given && (in_force == nullptr || row.scopes.find(in_force) != row.scopes.npos);
  }
  bool WriteIfAdmitted(const TVK::DatasetRow& row, const std::function<void()>& write) override {
    const bool admitted = Admits(row);
    if (admitted) write();
    return admitted;
  }

  std::atomic<bool> given = true;
  std::atomic<const wchar_t*> scope = nullptr;  ///< Only rows with that scope are admitted; null: all.
};

/// The world outside of the service. It outlives every life of it.
struct MonitorWorld {
  explicit MonitorWorld(platform::VirtualRuntimeOptions options = {}) : runtime(options) {}

  LogCapture logs;
  TempFolder folder;
  platform::VirtualRuntime runtime;
  platform::SimulatedMachine machine;
  SettableConfigAgent config;
};

/// What monitors are given in one run of the service, without a manager: `manager` and `consent` answer them. The
/// records of the runs before lie in the same folder; those of this one are collected. Any thread.
class ServiceLife {
 public:
  explicit ServiceLife(MonitorWorld& world);
  ServiceLife(const ServiceLife&) = delete;
  ServiceLife& operator=(const ServiceLife&) = delete;

  const TVK::MonitorServices& services() const { return services_; }

  std::vector<ItemEvent> Items() const { return records_.Items(); }
  std::vector<ItemEvent> Items(const std::wstring& item_name) const { return records_.Items(item_name); }
  std::vector<DatasetContext> DatasetContexts() const { return records_.DatasetContexts(); }

  SettableManagerIdentity manager;
  SettableConsent consent;
  NewsRecorder news;
  TVK::EventDataLogging store;

 private:
  RecordCollector records_;
  TVK::MachineServices machine_;
  TVK::SecondTick second_tick_;
  const TVK::MonitorServices services_;
};

/// A monitor that is run as the manager runs it: Initialize and StartMonitor on a thread of its own.
class RunningMonitor {
 public:
  RunningMonitor(platform::Runtime& runtime, std::unique_ptr<EventMonitorBase> monitor);
  /// As Stop.
  ~RunningMonitor();
  RunningMonitor(const RunningMonitor&) = delete;
  RunningMonitor& operator=(const RunningMonitor&) = delete;

  /// StopMonitor, UnInitialize, then the thread's end. Once.
  void Stop();

  EventMonitorBase& operator*() const { return *monitor_; }
  EventMonitorBase* operator->() const { return monitor_.get(); }

 private:
  platform::Runtime& runtime_;
  const std::unique_ptr<EventMonitorBase> monitor_;
  std::thread thread_;
};

/// A policy of the scope with these datasets (id, name) and no settings.
TelemetryPolicy MakePolicy(const std::wstring& scope, std::vector<std::pair<std::wstring, std::wstring>> datasets = {});
