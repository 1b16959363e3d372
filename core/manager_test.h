// What the manager's tests share: a world, scripted monitors, and one life of the service after the other.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string_view>

#include "core/manager_access.h"
#include "testing/manager_world.h"

class ManagerTest : public testing::Test {
 protected:
  /// A life of the service with this policy, once nothing moves in it any more. The life before ends.
  void Start(const TelemetryPolicy& policy) {
    world_.config.SetPolicy(policy);
    life_.emplace(world_, table_);
    life_->Start();
    world_.runtime.Settle();
  }
  void Change(const TelemetryPolicy& policy) {
    life_->Change(policy);
    world_.runtime.Settle();
  }
  /// Why the dataset runs or does not, as the status tells it.
  std::string_view WhyOf(std::wstring_view dataset) {
    for (const TVK::DatasetStatus& status : life_->manager.access().Status().datasets) {
      if (status.dataset->row.name == dataset) return status.why();
    }
    return {};
  }
  std::size_t Threads() const { return world_.runtime.Threads().size(); }

  MonitorWorld world_;
  MonitorScript script_;
  const TVK::DatasetTable table_ = ScriptedDatasets(script_);
  std::optional<ManagerLife> life_;
};
