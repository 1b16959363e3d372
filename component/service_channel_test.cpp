#include "component/service_channel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>

#include <sstream>

#include "client/channel/channel_client.h"
#include "client/policy/report_readers.h"
#include "client/report/report_json.h"
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
  int last = -1;
  life_.user_process.on_stop = [&] { last = recorder_.WriteItem(kDisplay, kBrightnessItem, {}, L"ONE"); };
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
  life_.manager.Stop();
  EXPECT_EQ(last, 0) << "what it says when it is told to end";
}

TEST_F(ServiceChannelTest, AnEventOfAnotherProgramBecomesARecordWhereThePolicyAdmitsIt) {
  Start(L"full");
  const ChannelRequest event{.wish = ChannelWish::kEvent, .item_name = L"DockUsed", .data = {{L"dock", L"D-17"}}};
  EXPECT_EQ(client_.Ask(event),
            (ChannelAnswer{DatasetMonitor::kWithheld, "the policy in force does not admit TVKEvent: not listed", {}}));
  const auto change = [&](const std::wstring& scope) {
    config_.SetPolicy(MakePolicy(scope, {{IdOf(L"TVKEvent"), L"TVKEvent"}}));
    life_.manager.OnTelemetryScopeChanges();
  };
  change(L"full");
  EXPECT_EQ(client_.Ask(event), (ChannelAnswer{0, {}, {}}));
  EXPECT_THAT(life_.Listed(), testing::Not(testing::Contains(L"TVKEvent"))) << "its monitor is in no list";
  change(L"none");
  EXPECT_EQ(
      client_.Ask(event),
      (ChannelAnswer{DatasetMonitor::kWithheld,
                     "the policy in force does not admit TVKEvent: scope (\"none\" is not among basic, enhance, full)",
                     {}}));
  const auto items = life_.records.Items(L"DockUsed");
  ASSERT_EQ(items.size(), 1u);
  EXPECT_EQ(items[0].item_data(), event.data);
  EXPECT_EQ(items[0].dataset_context_id(), life_.records.DatasetContexts().back().dataset_context_id());
  life_.manager.Stop();
  EXPECT_EQ(client_.Ask(event).result, SessionRecorder::kChannelFailed);
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

TEST_F(ServiceChannelTest, AnErasureLeavesTheServiceAtWork) {
  Start(L"full");
  const ObservedDevice device{L"ONE", {{L"Manufacturer", L"Contoso"}}};
  EXPECT_EQ(recorder_.LogDatasetContext(kDisplay, {device}, false), 0);
  EXPECT_EQ(recorder_.WriteItem(kDisplay, kResolutionItem, {{L"Width", L"1"}}, L"ONE"), 0);
  const ChannelAnswer answer = client_.Ask({.wish = ChannelWish::kErase, .dataset_id = kDisplay});
  const std::optional<ErasureReceipt> receipt = ReceiptFromJson(answer.body);
  ASSERT_TRUE(receipt.has_value()) << answer.reason;
  EXPECT_EQ(receipt->problem, "");
  EXPECT_GE(receipt->records, 2u);
  EventDataLogging& store = life_.composition.store();
  ItemEvent last;
  EXPECT_EQ(store.GetLastItemEventWithItemId(kDisplay, life_.records.Items(kResolutionItem)[0].item_id(), last),
            kStoreNotFound);
  EXPECT_EQ(recorder_.WriteItem(kDisplay, kResolutionItem, {{L"Width", L"2"}}, L"ONE"), 0) << "with its context";
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

class ChannelRights : public testing::Test, protected ManagerAccess {
 protected:
  SessionRecorder& session_recorder() override { return recorder_; }
  ManagerStatus Status() override { return manager_status_; }
  TakenEvent TakeApplicationEvent(const std::wstring& /*item*/, const ItemData& /*data*/, EventSender sender) override {
    if (sender == EventSender::kPrivileged) return {};
    return {SessionRecorder::kRefused, "not yours", over_quota_};
  }
  ChannelServer::Answer Answer(const platform::LocalCaller& caller, const std::string& text) {
    return requests_.Answer(caller, text, [this] { return awaited_; });
  }
  static ChannelRequest Request(ChannelWish wish) { return {.wish = wish, .all = wish == ChannelWish::kErase}; }
  int Ask(CallerKind kind, ChannelWish wish, const std::string& user = "1000") {
    const auto answer = AnswerFromJson(Answer({.kind = kind, .user = user}, ToJson(Request(wish))).text);
    if (!answer) return 1;
    EXPECT_EQ(answer->result == 0, answer->reason.empty());
    return answer->result;
  }
  std::uint64_t Refused(Refusal refusal) const { return refusals_.counts()[static_cast<std::size_t>(refusal)]; }

  ManagerStatus manager_status_;
  bool over_quota_ = false;
  bool awaited_ = true;
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
  Eraser eraser_{runtime_, &store_, {.data_folder = folder_.path(), .log_folder = {}}, Eraser::Rest::kLeft};
  ChannelRequests requests_{runtime_.clock(),
                            config_,
                            status_,
                            *this,
                            eraser_,
                            refusals_,
                            {.observations = {.at_once = 3, .refill = std::chrono::seconds(1)},
                             .reports = {.at_once = 2, .refill = std::chrono::hours(1)}}};
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
  for (const ChannelWish wish : {ChannelWish::kStatus, ChannelWish::kClientPolicy, ChannelWish::kErase})
    EXPECT_EQ(Ask(CallerKind::kInteractiveUser, wish), SessionRecorder::kChannelFailed) << WishName(wish);
  EXPECT_EQ(Refused(Refusal::kNotAllowed), 7u);
  EXPECT_EQ(Ask(CallerKind::kAdministrator, ChannelWish::kEvent), 0);
  EXPECT_EQ(Ask(CallerKind::kInteractiveUser, ChannelWish::kEvent, "1001"), SessionRecorder::kRefused)
      << "the policy's word";
  EXPECT_EQ(Refused(Refusal::kNotAllowed), 8u);
  over_quota_ = true;
  EXPECT_EQ(Ask(CallerKind::kInteractiveUser, ChannelWish::kEvent, "1001"), SessionRecorder::kRefused);
  EXPECT_EQ(Refused(Refusal::kTooMany), 1u);
  EXPECT_EQ(Ask(CallerKind::kOther, ChannelWish::kEvent), SessionRecorder::kChannelFailed);
  EXPECT_EQ(Ask(CallerKind::kAdministrator, ChannelWish::kErase), 0);
  for (const Dataset& dataset : ComponentDatasets().datasets()) {
    const ChannelRequest of_it{.wish = ChannelWish::kErase, .dataset_id = std::wstring(dataset.row.id)};
    const auto answer = AnswerFromJson(Answer({.kind = CallerKind::kAdministrator}, ToJson(of_it)).text);
    EXPECT_EQ(answer->result, 0) << answer->reason;
  }
  const ChannelRequest nowhere{.wish = ChannelWish::kErase, .dataset_id = L"ID"};
  const auto refused = AnswerFromJson(Answer({.kind = CallerKind::kAdministrator}, ToJson(nowhere)).text);
  EXPECT_EQ(refused->reason, "there is no such dataset");
  const ChannelServer::Answer broken = Answer({.kind = CallerKind::kAdministrator}, "{}");
  EXPECT_NE(broken.text.find("missing"), std::string::npos);
  EXPECT_TRUE(broken.last);
  EXPECT_EQ(Refused(Refusal::kBroken), 1u);
  EXPECT_FALSE(Answer({.kind = CallerKind::kOther}, "{}").last);
  EXPECT_EQ(Refused(Refusal::kBroken), 1u) << "nothing is read for who may ask for nothing";
}

TEST_F(ChannelRights, AnAnswerThatNoClientWouldTakeIsToldAsThat) {
  TelemetryPolicy policy;
  policy.settings[L"long"] = std::wstring(kLongestAnswer, L'x');
  config_.SetPolicy(policy);
  const std::string text = Answer({.kind = CallerKind::kOwnAccount}, ToJson(Request({}))).text;
  EXPECT_EQ(AnswerFromJson(text)->reason, "the answer is too long to be told");
}

TEST_F(ChannelRights, TheReportIsForUsersWhereThePolicySaysSo) {
  ItemEvent event;
  event.set_dataset_name(L"CPUEvent");
  event.set_item_name(L"ReadUsagePerInterval");
  event.set_item_data({{L"CPUUtilization", L"42"}});
  EXPECT_EQ(store_.LogItemEvent(event), 0);
  const DatasetTable table = MakeComponentDatasets();
  manager_status_.datasets = {{.dataset = table.FindByName(L"CPUEvent")}};
  const ChannelRequest request{.wish = ChannelWish::kReport};
  const auto ask = [&](CallerKind kind) {
    return *AnswerFromJson(Answer({.kind = kind, .user = "1000"}, ToJson(request)).text);
  };
  EXPECT_EQ(ask(CallerKind::kAdministrator).result, 0);
  TelemetryPolicy policy;
  for (const wchar_t* const readers : {L"", L"administrators", L"Users", L"everybody"}) {
    policy.settings = {{kReportReadersSetting, readers}};
    config_.SetPolicy(policy);
    const ChannelAnswer answer = ask(CallerKind::kInteractiveUser);
    EXPECT_EQ(answer.result, SessionRecorder::kChannelFailed);
    EXPECT_EQ(answer.body, "");
    EXPECT_NE(answer.reason.find("its setting \"ReportReaders\""), std::string::npos);
  }
  EXPECT_EQ(Refused(Refusal::kNotAllowed), 4u);
  policy.settings = {{kReportReadersSetting, L"users"}};
  config_.SetPolicy(policy);
  EXPECT_EQ(ask(CallerKind::kOther).result, SessionRecorder::kChannelFailed);
  Json::Value told;
  std::istringstream(ask(CallerKind::kInteractiveUser).body) >> told;
  const std::optional<Report> report = ReportFromJson(told["report"]);
  ASSERT_TRUE(report.has_value());
  EXPECT_EQ(ReportToJson(*report).toStyledString(), told["report"].toStyledString());
  EXPECT_EQ(report->records, 1u);
  ASSERT_EQ(report->timelines.size(), 1u);
  EXPECT_EQ(report->timelines[0].measure, Measure::kProcessorUse);
  EXPECT_EQ(std::ranges::max(report->timelines[0].curves[0].buckets, {}, &Extremes::most).most, 42);
  EXPECT_THAT(told["status"].getMemberNames(), testing::IsSubsetOf({"datasets", "policy", "scope", "up"}));
  EXPECT_THAT(told["status"]["datasets"][0].getMemberNames(), ElementsAre("collects", "name", "runs", "why"));
  for (const char* const key : {"begin", "records", "datasets", "timelines"}) {
    Json::Value broken = told["report"];
    broken[key] = "?";
    EXPECT_FALSE(ReportFromJson(broken).has_value()) << key;
  }
  const Json::Value numbers[] = {Json::UInt64(TimeAxis::kBuckets), 1e10, -1e10, 1e300, 0};
  for (Json::ArrayIndex i = 0; i < std::size(numbers); ++i) {
    Json::Value beyond = told["report"];
    beyond["timelines"][0]["curves"][0]["buckets"][0][i] = numbers[i];
    EXPECT_FALSE(ReportFromJson(beyond).has_value()) << numbers[i];
  }
  EXPECT_EQ(ask(CallerKind::kInteractiveUser).result, 0);
  EXPECT_EQ(ask(CallerKind::kInteractiveUser).result, SessionRecorder::kChannelFailed) << "each reads the store";
  EXPECT_EQ(Refused(Refusal::kTooMany), 1u);
  awaited_ = false;
  EXPECT_NE(ask(CallerKind::kAdministrator).reason.find("was ended"), std::string::npos) << "nobody waits for it";
  awaited_ = true;
  requests_.EndReports();
  const ChannelAnswer ended = ask(CallerKind::kAdministrator);
  EXPECT_EQ(ended.result, SessionRecorder::kChannelFailed) << "the end of the service waits for none";
  EXPECT_NE(ended.reason.find("was ended"), std::string::npos);
}

TEST_F(ChannelRights, AReportThatIsTooLongLeavesOutWhatItCountsThen) {
  DatasetContext context;
  context.set_dataset_name(L"SMARTEvent");
  context.set_dataset_id(L"SMARTEvent");
  constexpr int kDevices = 95;
  for (int i = 0; i < kDevices; ++i) {
    context.set_dataset_context_id(std::to_wstring(i));
    context.set_item_data({{L"Model", std::wstring(4000, L'\x01')}});  // each takes seven bytes on the channel
    EXPECT_EQ(store_.LogDatasetContext(context, std::to_wstring(i)), 0);
  }
  const ChannelRequest request{.wish = ChannelWish::kReport};
  const std::string text = Answer({.kind = CallerKind::kAdministrator}, ToJson(request)).text;
  EXPECT_LE(text.size(), kLongestAnswer);
  Json::Value told;
  std::istringstream(AnswerFromJson(text)->body) >> told;
  const std::optional<Report> report = ReportFromJson(told["report"]);
  ASSERT_TRUE(report.has_value());
  EXPECT_GE(report->descriptions.size(), 40u);
  EXPECT_LT(report->descriptions.size(), std::size_t{kDevices});
  EXPECT_EQ(report->descriptions.size() + report->left_out, std::size_t{kDevices});
}

TEST_F(ChannelRights, TheStatusSaysWhatNeedsAttention) {
  const DatasetTable table = MakeComponentDatasets();
  struct Row {
    PolicyStanding standing;
    std::string_view obstacle;
    const char* state;
    std::vector<std::string> attention;
  };
  for (const Row& row : {
           Row{{PolicyOrigin::kFile, ""}, "", "file", {}},
           Row{{PolicyOrigin::kFile, ""}, "no user agent", "file", {}},
           Row{{PolicyOrigin::kFile, ""}, "failed", "file", {"the monitor of CPUEvent ended with an error"}},
           Row{{PolicyOrigin::kFile, ""}, "not started", "file", {"the monitor of CPUEvent could not be started"}},
           Row{{PolicyOrigin::kLastGood, "x: y"}, "", "last good copy", {"what it said before is: x: y"}},
           Row{{PolicyOrigin::kNone, "x: y"}, "", "none", {"nothing is collected: x: y"}},
           Row{{PolicyOrigin::kNone, ""}, "failed", "none", {"there is no policy", "CPUEvent"}},
       }) {
    SCOPED_TRACE(testing::Message() << row.state << row.standing.problem << row.obstacle);
    manager_status_.datasets = {{.dataset = table.FindByName(L"CPUEvent"), .obstacle = row.obstacle}};
    const ServiceStatus status({.runtime = runtime_,
                                .tvk_info = tvk_info_,
                                .store = store_,
                                .store_file = folder_.path() / kStoreFileName,
                                .policy_file = folder_.path() / "policy.json",
                                .policy_standing = [&] { return row.standing; }});
    Json::Value told;
    std::istringstream(status.ToJson(*this, refusals_)) >> told;
    EXPECT_EQ(told["policy_state"], row.state);
    EXPECT_EQ(told.get("policy_problem", "").asString(), row.standing.problem);
    ASSERT_EQ(told["attention"].size(), row.attention.size());
    for (Json::ArrayIndex i = 0; i < told["attention"].size(); ++i)
      EXPECT_NE(told["attention"][i].asString().find(row.attention[i]), std::string::npos)
          << told["attention"][i].asString();
  }
}

TEST_F(ChannelRights, ARecordThatWasRefusedNeedsAttentionUntilOneIsTakenAndAnHourHasPassed) {
  const auto concerns = [&] {
    Json::Value told;
    std::istringstream(status_.ToJson(*this, refusals_)) >> told;
    return told["attention"].size();
  };
  DeviceContext context;
  context.set_device_context_id(std::wstring(2 << 20, L'x'));  // longer than a record may be
  EXPECT_EQ(concerns(), 0u);
  EXPECT_NE(store_.LogDeviceContext(context), 0);
  runtime_.Suspend(std::chrono::hours(2));
  EXPECT_EQ(concerns(), 1u) << "the newest";
  EXPECT_NE(store_.LogDeviceContext(context), 0);
  context.set_device_context_id(L"CONTEXT");
  EXPECT_EQ(store_.LogDeviceContext(context), 0);
  EXPECT_EQ(concerns(), 1u) << "in the last hour";
  runtime_.Suspend(std::chrono::minutes(61));
  EXPECT_EQ(concerns(), 0u);
  EXPECT_EQ(store_.refused(), 2u);
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
    EXPECT_EQ(AnswerFromJson(Answer({.kind = CallerKind::kInteractiveUser, .user = "a"}, ToJson(large)).text),
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
