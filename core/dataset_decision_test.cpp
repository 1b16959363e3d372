#include "core/dataset_decision.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <optional>
#include <set>

#include "client/text/string.h"
#include "core/policy_view.h"
#include "testing/manager_world.h"

namespace TVK {
namespace {

using enum DecisionReason;

constexpr std::array kScopes = {L"none", L"basic", L"enhance", L"full"};

/// The first of kScopes at which the dataset may write (none of the rows leaves one out above it; the test of the
/// records page compares them), or nothing for those that no policy and no scope keeps from running.
std::optional<std::size_t> LeastScope(const DatasetRow& row) {
  if (row.rule == DatasetRule::kAlways || row.rule == DatasetRule::kDeviceContext) return std::nullopt;
  if (row.scopes.empty()) return 1;  // the application events': any but "none"
  const auto* const least = std::ranges::find_if(
      kScopes, [&](const wchar_t* scope) { return row.scopes.find(scope) != std::wstring_view::npos; });
  return static_cast<std::size_t>(least - kScopes.begin());
}

enum Listing { kListed, kOtherDevices, kPolicyForOtherDevices, kOff, kAbsent, kListings };

class DatasetDecisionTest : public testing::Test {
 protected:
  /// A policy whose entry for `name` is as `listing` says.
  void SetPolicy(std::wstring_view name, const std::wstring& scope, int listing) {
    TelemetryPolicy policy = PolicyOf(scope, {std::wstring(listing == kAbsent ? L"NetworkEvent" : name)});
    ApplicabilityFilter others;
    others.manufacturers = {L"Fabrikam"};
    policy.datasets.front().enabled = listing != kOff;
    if (listing == kOtherDevices) policy.datasets.front().applicability = others;
    if (listing == kPolicyForOtherDevices) policy.applicability = others;
    world_.config.SetPolicy(policy);
  }

  MonitorWorld world_;
  MonitorScript script_;
  const DatasetTable table_ = ScriptedDatasets(script_);
  MachineInformation machine_{world_.machine, world_.runtime.clock()};
  Log log_;
  PolicyView view_{world_.runtime, world_.config, table_, machine_, log_};
};

TEST_F(DatasetDecisionTest, EveryDatasetAtEveryScopeAndEntry) {
  std::wstring before;
  for (const DatasetRow& row : kDatasetRows) {
    for (std::size_t scope = 0; scope < kScopes.size(); ++scope) {
      for (int listing = 0; listing < kListings; ++listing) {
        SCOPED_TRACE(String::UTF16ToUTF8(row.name) + " " + std::to_string(scope) + " " + std::to_string(listing));
        SetPolicy(row.name, kScopes[scope], listing);
        view_.ReadWithScope(before);
        const std::optional<std::size_t> least = LeastScope(row);
        DecisionReason running = scope >= least.value_or(0) ? kRuns : kScope;
        if (listing == kAbsent) running = kNotListed;
        if (listing == kOff) running = kDisabled;
        DecisionReason start = running;
        if (listing == kOtherDevices) start = kNotApplicable;
        if (listing == kPolicyForOtherDevices) start = kPolicyNotApplicable;
        DecisionReason with_service = start;
        if (row.name == L"VitalSignsEvent" && listing == kListed) with_service = kRuns;
        if (!least) running = start = with_service = kRuns;
        EXPECT_EQ(view_.Decide(row, DecisionMoment::kRunning).reason, running);
        EXPECT_EQ(view_.Decide(row, DecisionMoment::kStart).reason, start);
        EXPECT_EQ(view_.Decide(row, DecisionMoment::kServiceStart).reason, with_service);
        EXPECT_EQ(view_.Admits(row), running == kRuns);
        bool written = false;
        EXPECT_EQ(view_.WriteIfAdmitted(row, [&] { written = true; }), running == kRuns);
        EXPECT_EQ(written, running == kRuns);
      }
    }
  }
}

TEST_F(DatasetDecisionTest, OfScopeAndPolicyTheNarrowerCounts) {
  constexpr const DatasetRow& kCpu = DatasetRowNamed(L"CPUEvent");
  std::wstring before;
  EXPECT_EQ(view_.Decide(kCpu, DecisionMoment::kRunning).reason, kNotListed) << "no policy yet";
  SetPolicy(kCpu.name, L"Full", kListed);
  view_.ReadWithScope(before);
  EXPECT_EQ(before, L"none");
  EXPECT_TRUE(view_.Admits(kCpu));
  for (const wchar_t* text : {L"none", L"", L"a", L"everything"}) {
    view_.set_scope(text);
    EXPECT_FALSE(view_.Admits(kCpu)) << "consent that nobody understands is none";
    SetPolicy(kCpu.name, text, kListed);
    EXPECT_EQ(view_.ReadWithScope(before)->scope, L"none");
    EXPECT_FALSE(view_.Admits(kCpu));
    view_.set_scope(L"BASIC");
    EXPECT_FALSE(view_.Admits(kCpu)) << "the policy's own scope stands";
    SetPolicy(kCpu.name, L"full", kListed);
    view_.Read();
    EXPECT_EQ(view_.scope(), L"basic") << "read, not told";
    EXPECT_TRUE(view_.Admits(kCpu));
  }
  world_.config.SetPolicy(std::nullopt);
  EXPECT_EQ(view_.Read(), nullptr);
  EXPECT_TRUE(view_.Admits(kCpu)) << "what was in force stays";
}

TEST_F(DatasetDecisionTest, AWithdrawalWaitsForAWriteButNotForEver) {
  constexpr const DatasetRow& kCpu = DatasetRowNamed(L"CPUEvent");
  constexpr const DatasetRow& kNetwork = DatasetRowNamed(L"NetworkEvent");
  const auto stop = world_.runtime.MakeEvent(platform::EventReset::kManual);
  std::wstring before;
  // How long a write of the dataset takes, and how long a withdrawal meanwhile waits for it.
  for (const auto& [row, write_ms, waited_ms] :
       {std::tuple(&kCpu, 300, 300), std::tuple(&kCpu, 5000, 1000), std::tuple(&kNetwork, 300, 0)}) {
    SetPolicy(kCpu.name, L"full", kListed);
    view_.ReadWithScope(before);
    const auto begun = world_.runtime.MakeEvent(platform::EventReset::kManual);
    std::thread writer = world_.runtime.StartThread("writer", [&, dataset = row, time = write_ms] {
      view_.WriteIfAdmitted(*dataset, [&] {
        begun->Set();
        world_.runtime.Wait(*stop, std::chrono::milliseconds(time));
      });
    });
    world_.runtime.Settle();
    ASSERT_EQ(world_.runtime.Wait(*begun, std::chrono::milliseconds(0)), 0u);
    SetPolicy(kCpu.name, L"none", kListed);
    view_.ReadWithScope(before);
    EXPECT_FALSE(view_.WriteIfAdmitted(kCpu, [] { FAIL(); })) << "nothing new meanwhile";
    const auto from = world_.runtime.clock().Steady();
    std::chrono::nanoseconds waited{-1};
    std::thread waiter = world_.runtime.StartThread("waiter", [&] {
      view_.WaitForExcludedWrites(L"caller", stop.get());
      waited = world_.runtime.clock().Steady() - from;
    });
    world_.runtime.AdvanceBy(std::chrono::seconds(6));
    world_.runtime.Join(waiter);
    world_.runtime.Join(writer);
    EXPECT_EQ(waited, std::chrono::milliseconds(waited_ms));
  }
}

}  // namespace

}  // namespace TVK
