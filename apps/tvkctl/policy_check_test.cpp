#include "apps/tvkctl/policy_check.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "apps/tvkctl/policy_commands.h"
#include "client/text/string.h"
#include "monitors/system/cpu_settings.h"
#include "testing/temp_folder.h"

namespace TVK {
namespace {

constexpr DatasetRow kCpu{1, L"AAAA-1", L"CPUEvent", L"basic, enhance,full", DatasetRule::kByScope, L"Cpu"};
constexpr DatasetRow kLate{2, L"BBBB-2", L"LateEvent", L"full", DatasetRule::kByScope, L"Late"};
constexpr DatasetRow kPlain{3, L"CCCC-3", L"PlainEvent", L"full", DatasetRule::kStartsAtAnyScope, L"Plain"};
constexpr DatasetRow kPowerRow{4, L"DDDD-4", L"PowerEvent", L"none,full", DatasetRule::kAlways, L"Power"};
constexpr DatasetRow kApp{5, L"EEEE-5", L"AppEvent", L"", DatasetRule::kApplication, L"App"};

const DatasetTable& Known() {
  static const DatasetTable table(
      {{kCpu, {}, [](const SettingTexts& settings) { return ReadCpuSettings(settings).readings; }, true},
       {kLate},
       {kPlain, {}, {}, true},
       {kPowerRow},
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
                      R"({"id":"CCCC-3","name":"PlainEvent"},{"id":"DDDD-4","name":"PowerEvent","enabled":false})"),
               L"none",
               "datasets[0] CPUEvent scope (\"none\" is not among basic, enhance,full)\n"
               "datasets[1] LateEvent scope (\"none\" is not among full)\ndatasets[2] PlainEvent runs\n"
               "datasets[3] PowerEvent runs\n"},
           Row{Policy(R"({"id":"AAAA-1","name":"CPUEvent","enabled":false},)"
                      R"({"id":"BBBB-2","name":"LateEvent","applicability":{"models":["Other"]}})"),
               nullptr,
               std::string("datasets[0] CPUEvent disabled\n"
                           "datasets[1] LateEvent not applicable (the dataset's models: does not admit \"Book\")\n") +
                   kPower},
           Row{Policy(R"({"id":"AAAA-1","name":"CPUEvent"})", R"(,"applicability":{"osVersionMin":"10"})"), nullptr,
               std::string(
                   "datasets[0] CPUEvent not applicable (the policy's osVersionMin: does not admit a fact that the "
                   "device does not know)\n") +
                   kPower},
           Row{Policy(R"({"id":"ZZZZ","name":"CPUEvent"},{"id":"AAAA-1","name":"CpuEvent"})"), nullptr,
               std::string("datasets[0] CPUEvent unknown id\ndatasets[1] CpuEvent name mismatch\n") + kPower +
                   "datasets[0].id: no dataset has the id \"ZZZZ\"\n"
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
           Row{Policy(R"({"id":"AAAA-1BBBB-2","name":"LateEvent"},{"id":"EEEE-5","name":"AppEvent"},)"
                      R"({"id":"{dddd-4}","name":"PowerEvent"})"),
               nullptr,
               "datasets[0] LateEvent runs\ndatasets[1] AppEvent not switched\ndatasets[2] PowerEvent runs\n"
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
           Row{Policy("", R"(,"settings":{"No_hash_network_data":"yes"},"other":1)"), nullptr,
               std::string(kPower) + "other: the key is unknown and has no effect\n" +
                   "settings.No_hash_network_data: only true and false are known; it counts as false\n"},
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
    return RunPolicyCheck({file, {}, json, {}}, Known(), out_, err_);
  }

  TempFolder folder_;
  std::ostringstream out_;
  std::ostringstream err_;
};

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

}  // namespace

}  // namespace TVK
