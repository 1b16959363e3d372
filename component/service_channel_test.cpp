#include "component/service_channel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>

#include <sstream>

#include "client/channel/channel_client.h"
#include "component/component_datasets.h"
#include "framework/dataset_monitor.h"
#include "monitors/session/session_datasets.h"
#include "platform/local.h"
#include "platform/simulated/virtual_runtime.h"
#include "testing/manager_world.h"

namespace TVK {
namespace {

using platform::CallerKind;
using testing::ElementsAre;

const std::wstring kDisplay(kDisplayRow.id);
const std::wstring kPen(kPenRow.id);

// The service with its manager, as other processes find it.
class ServiceChannelTest : public testing::Test {
 protected:
  void Start(const std::wstring& scope) {
    life_.config.SetPolicy(PolicyWithSession(scope));
    life_.Start();
    life_.composition.ServeChannel(&life_.manager.access(), place_);
  }
  ~ServiceChannelTest() override { life_.composition.ServeChannel(nullptr); }
  static TelemetryPolicy PolicyWithSession(const std::wstring& scope) {
    return MakePolicy(scope, {{kDisplay, L"DisplayEvent"}, {kPen, L"PenEvent"}});
  }

  const LogCapture logs_;
  const TempFolder folder_;
  const std::filesystem::path place_ = folder_.path() / "run";
  const std::unique_ptr<platform::Runtime> runtime_ = platform::MakeRealRuntime({folder_.path() / "run"});
  platform::SimulatedMachine machine_;
  SettableConfigAgent config_;
  const DatasetTable table_ = MakeComponentDatasets();
  ManagerLife life_{*runtime_, machine_, config_, folder_, table_};
  Log log_;
  ChannelClient client_{*runtime_, place_};
  ChannelRecorder recorder_{client_, log_};
};

TEST_F(ServiceChannelTest, WhatTheAgentObservesBecomesRecords) {
  Start(L"full");
  const ObservedDevice one{L"ONE", {{L"Manufacturer", L"Contoso"}}};
  const ObservedDevice two{L"TWO", {{L"Manufacturer", L"Litware"}}};
  EXPECT_EQ(recorder_.WriteItem(kDisplay, kResolutionItem, {{L"Width", L"1"}}, L"ONE"), -1) << "not described yet";
  EXPECT_EQ(recorder_.LogDatasetContext(kDisplay, {one, two}, false), 0);
  EXPECT_EQ(recorder_.LogDevInitEvent(kDisplay), 0);
  EXPECT_EQ(recorder_.LogDevInitEvent(kDisplay), 0) << "once";
  EXPECT_EQ(recorder_.WriteItem(kDisplay, kResolutionItem, {{L"Width", L"1920"}}, L"TWO"), 0);
  EXPECT_EQ(recorder_.WriteItem(kDisplay, L"Invented", {}, L"TWO"), -1);
  EXPECT_EQ(recorder_.WriteItem(kPen, kResolutionItem, {}, L""), -1);
  EXPECT_EQ(recorder_.LogDatasetContext(kDisplay, {one}, false), 0) << "there already";
  EXPECT_EQ(recorder_.WriteItem(kDisplay, kResolutionItem, {}, L"TWO"), -1) << "gone";
  // What the agent must not name: a dataset of the service's own, and none at all.
  for (const std::wstring& dataset : {IdOf(L"CPUEvent"), IdOf(L"TVKEvent"), std::wstring(L"X"), std::wstring()})
    EXPECT_EQ(recorder_.LogDatasetContext(dataset, {one}, true), SessionRecorder::kRefused);

  std::vector<DatasetContext> contexts;
  for (const DatasetContext& context : life_.records.DatasetContexts()) {
    if (context.dataset_name() == L"DisplayEvent") contexts.push_back(context);
  }
  ASSERT_EQ(contexts.size(), 2u);
  EXPECT_EQ(contexts[1].item_data(), two.facts);
  EXPECT_EQ(contexts[1].source(), kDisplayRow.source);
  EXPECT_EQ(contexts[1].device_context_id(), life_.manager.get_device_context_id());
  const auto items = life_.records.Items(kResolutionItem);
  ASSERT_EQ(items.size(), 1u);
  EXPECT_EQ(items[0].dataset_context_id(), contexts[1].dataset_context_id());
  EXPECT_EQ(items[0].item_data(), (ItemData{{L"Width", L"1920"}}));
  EXPECT_EQ(std::ranges::count(life_.records.Items(L"DeviceInit"), L"DisplayEvent", &ItemEvent::dataset_name), 2);
}

TEST_F(ServiceChannelTest, NothingIsWrittenWithoutConsent) {
  Start(L"basic");
  const ObservedDevice device{L"ONE", {{L"Manufacturer", L"Contoso"}}};
  EXPECT_EQ(recorder_.LogDatasetContext(kDisplay, {device}, true), DatasetMonitor::kWithheld);
  EXPECT_EQ(recorder_.LogDevInitEvent(kDisplay), DatasetMonitor::kWithheld);
  life_.Change(PolicyWithSession(L"enhance"));
  // The bus tells the manager when it can.
  while (recorder_.LogDatasetContext(kDisplay, {device}, false) == DatasetMonitor::kWithheld)
    std::this_thread::yield();
  EXPECT_EQ(recorder_.WriteItem(kDisplay, kResolutionItem, {}, L"ONE"), 0);
  config_.SetPolicy(PolicyWithSession(L"none"));
  life_.manager.set_Telemetry_Scope(L"none");
  EXPECT_EQ(recorder_.WriteItem(kDisplay, kResolutionItem, {}, L"ONE"), DatasetMonitor::kWithheld);
  EXPECT_EQ(life_.records.Items(kResolutionItem).size(), 1u);
  life_.manager.Stop();
  EXPECT_EQ(recorder_.LogDatasetContext(kDisplay, {device}, true), SessionRecorder::kChannelFailed);
}

TEST_F(ServiceChannelTest, AFilterThatExcludesTheMachineWithholds) {
  TelemetryPolicy policy = PolicyWithSession(L"full");
  policy.datasets.front().applicability.models = {L"another model"};
  config_.SetPolicy(policy);
  life_.Start();
  life_.composition.ServeChannel(&life_.manager.access(), place_);
  EXPECT_EQ(recorder_.LogDatasetContext(kDisplay, {{L"ONE", {}}}, true), DatasetMonitor::kWithheld);
  EXPECT_EQ(recorder_.LogDatasetContext(kPen, {{L"", {}}}, true), 0);
}

TEST_F(ServiceChannelTest, TellsThePolicyInForce) {
  Start(L"enhance");
  ChannelConfigAgent agent(client_, log_);
  TelemetryPolicy policy;
  EXPECT_TRUE(agent.GetTelemetryPolicy(policy));
  EXPECT_EQ(policy, PolicyWithSession(L"enhance"));
  TvkPolicy client_policy;
  EXPECT_FALSE(agent.GetTvkPolicy(client_policy)) << "there is none";
}

// The status of a dataset, by its name.
Json::Value StatusOf(const Json::Value& status, const std::string& dataset) {
  for (const Json::Value& each : status["datasets"]) {
    if (each["name"] == dataset) return each;
  }
  return {};
}

TEST_F(ServiceChannelTest, TheStatusIsThatOfTheManagerAndItsStore) {
  TelemetryPolicy policy = MakePolicy(L"enhance", {{IdOf(L"CPUEvent"), L"CPUEvent"},
                                                   {IdOf(L"SystemBIOSEvent"), L"SystemBIOSEvent"},
                                                   {IdOf(L"PCIe_NVMe_SelfTestResult"), L"PCIe_NVMe_SelfTestResult"}});
  policy.datasets.front().settings = {{L"ReadUsageInterval", L"1h"}};
  policy.datasets.splice(policy.datasets.end(), PolicyWithSession(L"enhance").datasets);
  policy.datasets.back().enabled = false;
  config_.SetPolicy(policy);
  life_.Start();
  life_.composition.ServeChannel(&life_.manager.access(), place_);
  const auto ask = [&] {
    Json::Value status;
    std::istringstream(client_.Ask({.wish = ChannelWish::kStatus}).body) >> status;
    return status;
  };
  // Until the monitor's thread has written its first record and begun its reports.
  Json::Value status = ask();
  while (!StatusOf(status, "CPUEvent").isMember("next_due"))
    status = ask();
  EXPECT_EQ(status["up"], true);
  EXPECT_EQ(status["scope"], "enhance");
  EXPECT_EQ(status["store"]["refused"], 0);
  EXPECT_GT(status["store"]["bytes"].asUInt64(), 0u);
  EXPECT_TRUE(status["store"].isMember("oldest_record"));
  EXPECT_GT(status["process"]["memory_bytes"].asUInt64(), 0u);
  const Json::Value cpu = StatusOf(status, "CPUEvent");
  EXPECT_TRUE(cpu["runs"].asBool() && cpu["collects"].asBool());
  EXPECT_GT(cpu["next_due"].asString(), cpu["since"].asString());
  EXPECT_GE(cpu["last_record"].asString(), status["store"]["oldest_record"].asString());
  const Json::Value self_test = StatusOf(status, "PCIe_NVMe_SelfTestResult");
  EXPECT_FALSE(self_test["runs"].asBool());
  EXPECT_EQ(self_test["why"], "scope");
  EXPECT_EQ(StatusOf(status, "MemoryEvent")["why"], "not listed");
  const auto state = [](const Json::Value& dataset) {
    return dataset["why"].asString() + (dataset["runs"].asBool() ? ": runs" : ": not there");
  };
  EXPECT_EQ(state(StatusOf(status, "DisplayEvent")), "runs: runs");
  EXPECT_EQ(state(StatusOf(status, "PenEvent")), "disabled: not there") << "by the same program";
  life_.user_process.runs = false;
  EXPECT_EQ(state(StatusOf(ask(), "DisplayEvent")), "no user agent: not there");
  EXPECT_FALSE(StatusOf(status, "MemoryEvent").isMember("since"));
  EXPECT_TRUE(StatusOf(status, "DeviceContext").isMember("last_record"));
  EXPECT_EQ(status["datasets"].size(), table_.datasets().size());
  life_.manager.Stop();
  EXPECT_EQ(ask()["up"], false);
}

class AcceptingRecorder final : public SessionRecorder {
 public:
  int LogDatasetContext(const std::wstring&, const std::vector<ObservedDevice>&, bool) override { return 0; }
  int LogDevInitEvent(const std::wstring&) override { return 0; }
  int WriteItem(const std::wstring&, const std::wstring&, const ItemData&, const std::wstring&) override { return 0; }
};

class ChannelRights : public testing::Test, private ManagerAccess {
 protected:
  SessionRecorder& session_recorder() override { return recorder_; }
  ManagerStatus Status() override { return {}; }
  int Ask(CallerKind kind, ChannelWish wish, const std::string& user = "1000") {
    const auto answer =
        AnswerFromJson(requests_.Answer({.kind = kind, .user = user}, ToJson(ChannelRequest{wish})).text);
    if (!answer) return 1;
    EXPECT_EQ(answer->result == 0, answer->reason.empty());
    return answer->result;
  }
  std::uint64_t Refused(Refusal refusal) const { return refusals_.counts()[static_cast<std::size_t>(refusal)]; }

  platform::VirtualRuntime runtime_;
  AcceptingRecorder recorder_;
  SettableConfigAgent config_;
  Log log_;
  Refusals refusals_{log_};
  const TempFolder folder_;
  const TvkInfo tvk_info_{L""};
  EventDataLogging store_{{.file = folder_.path() / kStoreFileName, .limits = {}}, runtime_.clock()};
  const ServiceStatus status_{{.runtime = runtime_,
                               .tvk_info = tvk_info_,
                               .store = store_,
                               .store_file = folder_.path() / kStoreFileName,
                               .policy_file = {}}};
  ChannelRequests requests_{runtime_.clock(), config_,
                            status_,          *this,
                            refusals_,        {.observations = {.at_once = 3, .refill = std::chrono::seconds(1)}}};
};

TEST_F(ChannelRights, FollowFromWhoAsks) {
  config_.SetPolicy(TelemetryPolicy());
  config_.SetTvkPolicy(TvkPolicy());
  EXPECT_EQ(Ask(CallerKind::kAdministrator, ChannelWish::kStatus), 0);
  EXPECT_EQ(Ask(CallerKind::kAdministrator, ChannelWish::kClientPolicy), 0);
  for (const ChannelWish wish : {ChannelWish::kPolicy, ChannelWish::kContext, ChannelWish::kInit, ChannelWish::kItem}) {
    for (const CallerKind kind : {CallerKind::kOwnAccount, CallerKind::kAdministrator, CallerKind::kInteractiveUser})
      EXPECT_EQ(Ask(kind, wish), 0) << WishName(wish);
    EXPECT_EQ(Ask(CallerKind::kOther, wish), SessionRecorder::kChannelFailed) << WishName(wish);
  }
  EXPECT_EQ(Refused(Refusal::kNotAllowed), 4u);
  for (const ChannelWish wish : {ChannelWish::kStatus, ChannelWish::kClientPolicy})
    EXPECT_EQ(Ask(CallerKind::kInteractiveUser, wish), SessionRecorder::kChannelFailed) << WishName(wish);
  EXPECT_EQ(Refused(Refusal::kNotAllowed), 6u);
  const ChannelServer::Answer broken = requests_.Answer({.kind = CallerKind::kAdministrator}, "{}");
  EXPECT_NE(broken.text.find("missing"), std::string::npos);
  EXPECT_TRUE(broken.last);
  EXPECT_EQ(Refused(Refusal::kBroken), 1u);
  EXPECT_FALSE(requests_.Answer({.kind = CallerKind::kOther}, "{}").last);
  EXPECT_EQ(Refused(Refusal::kBroken), 1u) << "nothing is read for who may ask for nothing";
}

TEST_F(ChannelRights, AFloodOfObservationsIsAUsersOwnAffair) {
  config_.SetPolicy(TelemetryPolicy());
  const auto write = [&](const std::string& user, CallerKind kind = CallerKind::kInteractiveUser) {
    return Ask(kind, ChannelWish::kItem, user);
  };
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(write("a"), 0);
  EXPECT_EQ(write("a"), SessionRecorder::kChannelFailed);
  EXPECT_EQ(Refused(Refusal::kTooMany), 1u);
  EXPECT_EQ(write("b"), 0);
  EXPECT_EQ(write("a", CallerKind::kAdministrator), 0);
  runtime_.AdvanceBy(std::chrono::milliseconds(2500));
  EXPECT_EQ(write("a"), 0);
  EXPECT_EQ(write("a"), 0);
  EXPECT_EQ(write("a"), SessionRecorder::kChannelFailed) << "one a second comes back";
  runtime_.AdvanceBy(std::chrono::hours(1));
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(write("a"), 0);
  EXPECT_EQ(write("a"), SessionRecorder::kChannelFailed) << "no more than at once";
  // Many devices in one, or a long text, are many.
  ChannelRequest devices{.wish = ChannelWish::kContext, .devices = {{L"1", {}}, {L"2", {}}, {L"3", {}}}};
  ChannelRequest text{.wish = ChannelWish::kItem};
  for (int i = 0; i < 10; ++i)
    text.data[std::to_wstring(i)] = std::wstring(210, L'x');
  for (const ChannelRequest& large : {devices, text}) {
    runtime_.AdvanceBy(std::chrono::hours(1));
    EXPECT_EQ(AnswerFromJson(requests_.Answer({.kind = CallerKind::kInteractiveUser, .user = "a"}, ToJson(large)).text),
              ChannelAnswer());
    EXPECT_EQ(write("a"), SessionRecorder::kChannelFailed);
  }
  EXPECT_EQ(write("b"), 0);
  int asked = 0;
  while (Ask(CallerKind::kInteractiveUser, ChannelWish::kPolicy, "c") == 0)
    ASSERT_LT(++asked, 1000) << "what is asked for has its bound, too";
}

}  // namespace
}  // namespace TVK
