#include "apps/tvkctl/policy_check.h"

#include <gtest/gtest.h>
#include <json/json.h>

#include <fstream>
#include <iostream>
#include <sstream>
#include <tuple>

#include "apps/tvkctl/device_facts.h"
#include "apps/tvkctl/policy_commands.h"
#include "client/channel/channel_request.h"
#include "client/channel/channel_server.h"
#include "client/text/string.h"
#include "monitors/system/cpu_settings.h"
#include "platform/files.h"
#include "platform/local.h"
#include "platform/runtime.h"
#include "testing/temp_folder.h"

namespace TVK {
namespace {

constexpr DatasetRow kCpu{1, L"AAAA-1", L"CPUEvent", L"basic, enhance,full", DatasetRule::kByScope, L"Cpu"};
constexpr DatasetRow kLate{2, L"BBBB-2", L"LateEvent", L"full", DatasetRule::kByScope, L"Late"};
constexpr DatasetRow kPlain{3, L"CCCC-3", L"PlainEvent", L"full", DatasetRule::kStartsAtAnyScope, L"Plain"};
constexpr DatasetRow kPowerRow{4, L"DDDD-4", L"PowerEvent", L"none,full", DatasetRule::kAlways, L"Power"};
constexpr DatasetRow kContext{5, L"EEEE-5", L"ContextEvent", L"", DatasetRule::kDeviceContext, L"Context"};
constexpr DatasetRow kApp{6, L"FFFF-6", L"AppEvent", L"", DatasetRule::kApplication, L"App"};

const DatasetTable& Known() {
  static const DatasetTable table(
      {{kCpu, {}, [](const SettingTexts& settings) { return ReadCpuSettings(settings).readings; }, true},
       {kLate},
       {kPlain, {}, {}, true},
       {kPowerRow},
       {kContext},
       {kApp}});
  return table;
}

std::string Policy(const std::string& datasets, const std::string& rest = "") {
  return R"({"telemetryScope":"full")" + rest + R"(,"datasets":[)" + datasets + "]}";
}

// "path name state" a dataset, and the period in force where there is one; then "path: message" a problem.
std::string Describe(const PolicyReport& report) {
  std::string text;
  for (const DatasetCheck& dataset : report.datasets) {
    text += dataset.path + " " + String::UTF16ToUTF8(dataset.name) + " " + std::string(dataset.why);
    if (!dataset.detail.empty()) text += " (" + String::UTF16ToUTF8(dataset.detail) + ")";
    for (const SettingReading& setting : dataset.settings) {
      if (setting.key == L"ReadUsageInterval" && setting.from_policy) {
        text += " " + String::UTF16ToUTF8(setting.value_in_force);
      }
    }
    text += "\n";
  }
  for (const PolicyProblem& problem : report.problems)
    text += problem.path + ": " + problem.message + "\n";
  return text;
}

TEST(PolicyCheckTest, SaysWhatRunsAndWhyNot) {
  constexpr char kPower[] = " PowerEvent runs\n";
  struct Row {
    std::string json;
    const wchar_t* scope;
    std::string report;
  };
  for (const Row& row : {
           Row{Policy(R"({"id":"AAAA-1","name":"CPUEvent"},{"id":"BBBB-2","name":"LateEvent"},)"
                      R"({"id":"CCCC-3","name":"PlainEvent"},{"id":"DDDD-4","name":"PowerEvent","enabled":false},)"
                      R"({"id":"FFFF-6","name":"AppEvent"})"),
               L"none",
               "datasets[0] CPUEvent scope (\"none\" is not among basic, enhance,full)\n"
               "datasets[1] LateEvent scope (\"none\" is not among full)\ndatasets[2] PlainEvent scope (\"none\" is "
               "not among full)\n"
               "datasets[3] PowerEvent runs\n"
               "datasets[4] AppEvent scope (\"none\" is not among basic, enhance, full)\n"},
           Row{Policy(R"({"id":"AAAA-1","name":"CPUEvent","enabled":false},)"
                      R"({"id":"BBBB-2","name":"LateEvent","applicability":{"models":["Other"]}})"),
               nullptr,
               std::string(
                   "datasets[0] CPUEvent disabled\n"
                   "datasets[1] LateEvent not applicable (the dataset's filter: model is Book, wanted Other)\n") +
                   kPower},
           Row{Policy(R"({"id":"AAAA-1","name":"CPUEvent"})", R"(,"applicability":{"osVersionMin":"10"})"), nullptr,
               std::string(
                   "datasets[0] CPUEvent not applicable (the policy's filter: osVersion is not known, wanted at least "
                   "10)\n") +
                   kPower},
           Row{Policy(R"({"id":"ZZZZ","name":"CPUEvent"},{"id":"AAAA-1","name":"CpuEvent"})"), nullptr,
               std::string("datasets[0] CPUEvent unknown id\ndatasets[1] CpuEvent name mismatch\n") + kPower +
                   "datasets[0].id: no dataset has the id \"ZZZZ\"; that of CPUEvent is \"AAAA-1\"\n"
                   "datasets[1].name: the dataset of this id is named \"CPUEvent\", not \"CpuEvent\"; it does not "
                   "run\n"},
           Row{Policy(R"({"id":"CCCC-3","name":"PlainEvent"},{"id":"xcccc-3","name":"PlainEvent"})"), nullptr,
               std::string("datasets[0] PlainEvent runs\ndatasets[1] PlainEvent duplicate\n") + kPower +
                   "datasets[1].id: an earlier entry has this id; only that one counts\n"},
           Row{Policy(R"({"id":"aaaa-1","name":"CPUEvent","settings":{"ReadUsageInterval":"5m"}},)"
                      R"({"id":"AAAA-1","name":"CPUEvent","settings":{"ReadUsageInterval":"1h","Z":""}})"),
               nullptr,
               std::string("datasets[0] CPUEvent runs 1h\ndatasets[1] CPUEvent duplicate\n") + kPower +
                   "datasets[0].id: the settings in force are those of datasets[1], the first entry with the id as it "
                   "is written: \"AAAA-1\"\n"
                   "datasets[1].id: an earlier entry is for this dataset; of this one only the settings count\n"
                   "datasets[1].settings.Z: the dataset has no such setting; in force: none\n"},
           Row{Policy(R"({"id":"AAAA-1","name":"Wrong","settings":{"ReadUsageInterval":"7m"}},)"
                      R"({"id":"AAAA-1","name":"CPUEvent","settings":{"ReadUsageInterval":"9m"}})"),
               nullptr,
               std::string("datasets[0] Wrong name mismatch\ndatasets[1] CPUEvent runs 7m\n") + kPower +
                   "datasets[0].name: the dataset of this id is named \"CPUEvent\", not \"Wrong\"; it does not run\n"
                   "datasets[1].id: the settings in force are those of datasets[0], the first entry with the id as it "
                   "is written: \"AAAA-1\"\n"},
           Row{Policy(R"({"id":"AAAA-1BBBB-2","name":"LateEvent"},{"id":"EEEE-5","name":"ContextEvent"},)"
                      R"({"id":"{dddd-4}","name":"PowerEvent"})"),
               nullptr,
               "datasets[0] LateEvent runs\ndatasets[1] ContextEvent not switched\ndatasets[2] PowerEvent runs\n"
               "datasets[0].id: the settings are found only under the id as it is written: \"BBBB-2\"\n"
               "datasets[1].id: policies do not switch this dataset; the entry has no effect\n"
               "datasets[2].id: the settings are found only under the id as it is written: \"DDDD-4\"\n"},
           Row{Policy(R"({"id":"AAAA-1","name":"CPUEvent","enabled":false,"settings":{"CPUPeakThreshold":"x","Z":""}},)"
                      R"({"id":"CCCC-3","name":"PlainEvent","settings":{"A":"1"}})"),
               nullptr,
               std::string("datasets[0] CPUEvent disabled\ndatasets[1] PlainEvent runs\n") + kPower +
                   "datasets[0].settings.CPUPeakThreshold: \"x\" is no whole number; in force: 90\n"
                   "datasets[0].settings.Z: the dataset has no such setting; in force: none\n"
                   "datasets[1].settings.A: the dataset has no such setting; in force: none\n"},
           Row{Policy("", R"(,"settings":{"No_hash_network_data":"yes","ReportReaders":"all"},"other":1)"), nullptr,
               std::string(kPower) + "other: the key is unknown and has no effect\n" +
                   "settings.No_hash_network_data: only true and false are known; it counts as false\n"
                   "settings.ReportReaders: only administrators and users are known; it counts as administrators\n"},
           Row{R"({"telemetryScope":"full"})", nullptr, "datasets: the key is missing\n"},
       }) {
    SCOPED_TRACE(row.json);
    const auto scope = row.scope == nullptr ? std::nullopt : std::optional<std::wstring>(row.scope);
    const PolicyReport report = CheckPolicy(row.json, scope, Known(), EligibilityFilter({L"Book", L"", L"", L"", L""}));
    EXPECT_EQ(Describe(report), row.report);
  }
}

class PolicyCommandsTest : public testing::Test {
 protected:
  int Check(const std::filesystem::path& file, bool json) {
    out_.str("");
    return RunPolicyCheck({.policy = PolicyFile(file, std::cin), .json = json}, Known(), out_, err_);
  }

  TempFolder folder_;
  std::ostringstream out_;
  std::ostringstream err_;
};

TEST_F(PolicyCommandsTest, TheReportFitsATerminalAndIsUnbrokenElsewhere) {
  const PolicyContent content{
      .text = Policy(
          R"({"id":"AAAA-1","name":"CPUEvent","settings":{"CPUPeakThreshold":"a long text that is no number"}})"),
      .remarks = {}};
  PolicyCheckOptions options{.policy = {"in force", [&] { return content; }}};
  const auto lines = [&](std::size_t width) {
    options.width = width;
    out_.str("");
    RunPolicyCheck(options, Known(), out_, err_);
    std::vector<std::string> all;
    std::istringstream text(out_.str());
    for (std::string line; std::getline(text, line);)
      all.push_back(line);
    return all;
  };
  const auto words = [](const std::vector<std::string>& all) {
    std::string text;
    for (const std::string& line : all) {
      std::istringstream stream(line);
      for (std::string word; stream >> word;)
        text += word + ' ';
    }
    return text;
  };
  const std::vector<std::string> unbroken = lines(kUnbroken);
  EXPECT_NE(std::ranges::find(unbroken, "runs            CPUEvent                  AAAA-1"), unbroken.end())
      << out_.str();
  EXPECT_TRUE(std::ranges::any_of(unbroken, [](const std::string& line) { return line.size() > 80; })) << out_.str();
  for (const std::size_t width : {60u, 80u, 200u}) {
    const std::vector<std::string> fit = lines(width);
    EXPECT_EQ(words(fit), words(unbroken)) << "nothing is lost at " << width;
    for (const std::string& line : fit)
      EXPECT_LE(line.size(), width) << line;
  }
}

TEST_F(PolicyCommandsTest, ThePolicyInForceIsCheckedAsItsServiceHasIt) {
  const std::string elsewhere = R"({"id":"AAAA-1","name":"CPUEvent","applicability":{"models":["Other"]}})";
  PolicyContent content{.text = Policy(elsewhere), .scope = L"basic", .remarks = {"a remark"}, .running = {L"AAAA-1"}};
  PolicyCheckOptions options{.policy = {"in force", [&] { return content; }}, .json = true};
  const auto check = [&] {
    out_.str("");
    RunPolicyCheck(options, Known(), out_, err_);
    return out_.str();
  };
  const auto holds = [](const std::string& text, const char* what) { return text.find(what) != std::string::npos; };
  std::string told = check();
  EXPECT_TRUE(holds(told, R"("scope":"basic")")) << told;
  EXPECT_TRUE(holds(told, R"("remarks":["a remark","the service narrows the policy's scope)")) << told;
  EXPECT_TRUE(holds(told, R"("why":"not applicable")") && holds(told, "; it runs until the service starts anew"))
      << told;
  options.scope = L"enhance";
  EXPECT_TRUE(holds(told = check(), R"("scope":"enhance")") && !holds(told, "narrows")) << told;
  options.scope.reset();
  options.json = false;
  options.devices = {{"book", {}}};
  EXPECT_TRUE(holds(told = check(), "\na remark\n") && !holds(told, "starts anew")) << "another machine's" << told;
  content.scope = L"full";
  content.remarks.clear();
  EXPECT_TRUE(holds(told = check(), "in force for book: scope full\nnot applicable")) << told;
}

TEST(WithPolicyInForce, AFileThatWasEditedSinceIsNotTakenForIt) {
  const std::string in_force = R"({"telemetryScope":"basic","datasets":[]})";
  struct Row {
    std::optional<std::string> of_file;
    bool is_shown;
    std::size_t remarks;
  };
  for (const auto& [of_file, is_shown, remarks] :
       {Row{R"({ "telemetryScope": "basic", "datasets": [], "unknown": 1 })", true, 0},
        {R"({"telemetryScope":"full","datasets":[]})", false, 1},
        {"{", false, 1},
        {std::nullopt, false, 0}}) {
    const PolicyContent content = WithPolicyInForce({.text = of_file, .scope = L"basic"}, in_force);
    EXPECT_EQ(content.text, is_shown ? of_file : in_force) << of_file.value_or("none");
    EXPECT_EQ(content.remarks.size(), remarks) << of_file.value_or("none");
    EXPECT_EQ(content.scope, L"basic");
  }
}

TEST_F(PolicyCommandsTest, AFileIsNotTakenForThePolicyThatTheServiceDoesNotTell) {
  const std::filesystem::path file = folder_.path() / "policy.json";
  std::ofstream(file) << Policy("");
  Json::Value status;
  status["scope"] = "full";
  status["policy_state"] = "file";
  status["policy"] = platform::PathToUtf8(file);
  const std::unique_ptr<platform::Runtime> runtime = platform::MakeRealRuntime({folder_.path() / "run"});
  const Log log;
  Refusals refusals(log);
  int policy_result = 0;
  ChannelServer server(*runtime, log, refusals, [&](const auto&, std::string_view request, const auto&) {
    std::string ignored;
    const auto asked = RequestFromJson(request, ignored);
    const bool policy = asked && asked->wish == ChannelWish::kPolicy;
    return ChannelServer::Answer{ToJson(policy ? ChannelAnswer{policy_result, "it is not told", Policy("")}
                                               : ChannelAnswer{0, {}, status.toStyledString()})};
  });
  ASSERT_EQ(server.Start(folder_.path() / "run"), "");
  const PolicyCheckOptions options{.policy = ::PolicyInForce(folder_.path() / "run", *runtime)};
  EXPECT_EQ(RunPolicyCheck(options, Known(), out_, err_), 0) << out_.str();
  policy_result = 1;
  out_.str("");
  EXPECT_EQ(RunPolicyCheck(options, Known(), out_, err_), 2);
  EXPECT_NE((out_.str() + err_.str()).find("it is not told"), std::string::npos) << out_.str() << err_.str();
}

TEST_F(PolicyCommandsTest, CheckCountsWhatIsTooMuchToRead) {
  std::string datasets = R"({"id":"X","name":"N"})";
  for (int i = 1; i < 500; ++i)
    datasets += R"(,{"id":"X","name":"N"})";
  std::ofstream(folder_.path() / "many.json") << Policy(datasets);
  EXPECT_EQ(Check(folder_.path() / "many.json", false), 2);
  EXPECT_NE(out_.str().find("\n500 problems\n"), std::string::npos);
  EXPECT_NE(out_.str().find("datasets[99].id: no dataset"), std::string::npos);
  EXPECT_EQ(out_.str().find("datasets[100]"), std::string::npos);
  EXPECT_NE(out_.str().find("  error  400 more problems\n"), std::string::npos);
}

TEST_F(PolicyCommandsTest, CheckNamesWhatCannotBeRead) {
  EXPECT_EQ(Check(folder_.path(), false), 2);
  EXPECT_NE(out_.str().find("1 problem\n"), std::string::npos);
  EXPECT_NE(out_.str().find("this is a folder"), std::string::npos);
  // A byte that is no UTF-8, where names are bytes.
  const std::filesystem::path odd =
      folder_.path() / std::filesystem::path::string_type(1, static_cast<std::filesystem::path::value_type>(0xFF));
  for (const bool there : {false, true}) {
    if (there) std::ofstream(odd) << "{}";
    EXPECT_EQ(Check(odd, true), 2);
    EXPECT_EQ(FindInvalidUtf8(out_.str()), std::string::npos) << out_.str();
  }
}

TEST_F(PolicyCommandsTest, ComparesWithAnotherPolicyForEachMachine) {
  const std::string cpu = R"({"id":"AAAA-1","name":"CPUEvent","settings":{"ReadUsageInterval":"5m"}})";
  const std::string new_cpu = R"({"id":"AAAA-1","name":"CPUEvent","settings":{"ReadUsageInterval":"1h"}})";
  const std::string late = R"({"id":"BBBB-2","name":"LateEvent","applicability":{"models":["Book"]}})";
  const auto run = [&](const std::string& policy, const std::string& before, bool json = false) {
    out_.str("");
    std::istringstream input(before);
    std::ofstream(folder_.path() / "new.json") << policy;
    PolicyCheckOptions options{
        .policy = PolicyFile(folder_.path() / "new.json", input),
        .against = PolicyFile("-", input),
        .json = json,
        .devices = {{"book", {L"Book", L"", L"", L"", L""}}, {"tower", {L"Tower", L"", L"", L"", L""}}}};
    options.policy.name = "new";
    return RunPolicyCheck(options, Known(), out_, err_);
  };
  EXPECT_EQ(run(Policy(new_cpu + "," + late), Policy(cpu)), 5);
  EXPECT_EQ(out_.str(),
            "new for book\nstarts   LateEvent\nchanges  CPUEvent: ReadUsageInterval 5m -> 1h\n"
            "new for tower\nchanges  CPUEvent: ReadUsageInterval 5m -> 1h\n");
  EXPECT_EQ(run(Policy(cpu), Policy(cpu + "," + late)), 0);
  EXPECT_EQ(out_.str(), "new for book\nstops    LateEvent\nnew for tower: nothing changes\n");
  EXPECT_EQ(run(Policy(late), Policy(late), true), 0);
  EXPECT_EQ(out_.str(), R"({"devices":[{"changes":[],"facts":"book","starts":[],"stops":[]},)"
                        R"({"changes":[],"facts":"tower","starts":[],"stops":[]}],"file":"new"})"
                        "\n");
  EXPECT_EQ(run(Policy(late), R"({"telemetryScope":"none","datasets":[]})"), 5);
  EXPECT_NE(out_.str().find("changes  scope none -> full"), std::string::npos);
  EXPECT_EQ(run(Policy(R"({"id":"X","name":"N"})"), Policy("")), 2) << "a mistake goes first";
  EXPECT_NE(err_.str().find("tvkctl: new:   error  datasets[0].id: "), std::string::npos) << err_.str();
  EXPECT_EQ(run(R"({"telemetryScope":"full","settings":{"ReportReaders":"users"},"datasets":[]})",
                R"({"telemetryScope":"full","settings":{"Gone":"1"},"datasets":[]})"),
            0);
  EXPECT_NE(out_.str().find("changes  the policy: Gone 1 -> none\nchanges  the policy: ReportReaders none -> users\n"),
            std::string::npos)
      << out_.str();
  EXPECT_EQ(run(Policy(""), "{"), 2);
  EXPECT_NE(err_.str().find("tvkctl: standard input: "), std::string::npos);
}

TEST_F(PolicyCommandsTest, AMachinesFactsGoThroughAFile) {
  const TVK::DeviceTraits traits{L"Book \"14\"", L"Contoso", L"", L"Linux", L"6.1"};
  tvkctl::RunInspectFacts(traits, true, out_);
  const std::filesystem::path file = folder_.path() / "facts.json";
  std::ofstream(file) << out_.str();
  std::string problem;
  const auto read = tvkctl::ReadFactsFile(file, problem);
  ASSERT_TRUE(read);
  EXPECT_EQ(std::tie(read->model, read->manufacturer, read->brand, read->os_name, read->os_version),
            std::tie(traits.model, traits.manufacturer, traits.brand, traits.os_name, traits.os_version));
  for (const char* wrong : {"", "[]", R"({"modell":"x"})", R"({"model":1})"}) {
    std::ofstream(file) << wrong;
    EXPECT_FALSE(tvkctl::ReadFactsFile(file, problem)) << wrong;
    EXPECT_NE(problem.find("facts.json: "), std::string::npos);
  }
  EXPECT_FALSE(tvkctl::ReadFactsFile(folder_.path() / "absent", problem));
}

}  // namespace

}  // namespace TVK
