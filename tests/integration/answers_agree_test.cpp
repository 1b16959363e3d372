// What `policy check` says of a policy beside what the service does with it, and tells of itself; the schema beside
// what the datasets read.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/reader.h>

#include <regex>
#include <set>
#include <sstream>

#include "apps/tvkctl/policy_check.h"
#include "client/text/string.h"
#include "component/component_datasets.h"
#include "core/manager_access.h"
#include "testing/manager_world.h"

namespace TVK {
namespace {

// Every reason for not running, and a dataset of every rule.
constexpr char kDatasets[] = R"(
    {"id":"9492447A-FCAC-428E-B7A8-7F7918199480","name":"CPUEvent"},
    {"id":"4B433ADC-BD40-43E7-85BF-014C8C8128D3","name":"BatteryEvent","enabled":false},
    {"id":"3267A6D2-D6FD-4C29-87E7-9BF83E459C29","name":"MemoryEvent","applicability":{"models":["Other"]}},
    {"id":"F7A8403B-268C-4E8A-8474-7EAF7B1E726E","name":"EventViewerLogsEvent","applicability":{"models":["*"]}},
    {"id":"71CA0A00-237A-4ACD-B196-7182B2A86B72","name":"VitalSignsEvent"},
    {"id":"10B843FF-8CA9-4897-9ACF-198DEE3DF75F","name":"TVKEvent"},
    {"id":"C4D1AFBD-F3E9-4242-8811-7C6C3904E9CA","name":"DisplayEvent"},
    {"id":"DAA0ED20-1EC1-42CE-9C96-BC9E81D0A146","name":"PenEvent","applicability":{"brands":["Other"]}},
    {"id":"837F9CAE-8AF1-4E88-A690-61DD550E32D9","name":"SystemPowerEvent","enabled":false},
    {"id":"2274532a-4efb-40a9-8bd4-f6d4f4e4909f","name":"StorageEvent"},
    {"id":"9492447A-FCAC-428E-B7A8-7F7918199480","name":"CPUEvent","enabled":false},
    {"id":"A65D4288-B384-45EC-8EE5-2DC5E81A7C8C","name":"BiosEvent"})";

TEST(Answers, PolicyCheckAndStatusNeverContradictEachOther) {
  const DatasetTable table = MakeComponentDatasets();
  for (const std::string scope : {"none", "basic", "enhance", "full"}) {
    for (const std::string filter : {R"({})", R"({"manufacturers":["Other"]})"}) {
      SCOPED_TRACE(testing::Message() << scope << filter);
      const std::string json =
          R"({"telemetryScope":")" + scope + R"(","applicability":)" + filter + R"(,"datasets":[)" + kDatasets + "]}";
      MonitorWorld world;
      world.config.SetPolicy(*ParseTelemetryPolicy(json).policy);
      ManagerLife life(world, table);
      life.Start();
      world.runtime.Settle();
      const EligibilityFilter device(life.composition.machine_services().machine_information.traits());
      const PolicyReport report = CheckPolicy(json, std::nullopt, table, device);
      EXPECT_EQ(report.problem_count, 3u) << "an id in small letters, a second entry, another name";
      EXPECT_EQ(report.datasets.size(), 14u) << "those listed, and two that always run";
      const ManagerStatus status = life.manager.access().Status();
      for (const DatasetCheck& check : report.datasets) {
        if (check.why == "duplicate") continue;  // an entry is one, no dataset
        const auto found = std::ranges::find_if(
            status.datasets, [&](const DatasetStatus& each) { return each.dataset->row.id == check.id; });
        ASSERT_NE(found, status.datasets.end());
        SCOPED_TRACE(String::UTF16ToUTF8(check.name));
        EXPECT_EQ(found->why(), check.why);
        const bool other_name = check.why == "name mismatch";  // which policy check tells by the entry's own
        EXPECT_TRUE(other_name || found->detail == check.detail);
        const bool ends_soon = check.name == L"VitalSignsEvent";  // starts with the service at any scope
        EXPECT_TRUE(ends_soon || found->runs == check.runs());
      }
    }
  }
}

TEST(Answers, WhatRunsThoughAFilterExcludesItNowIsToldAsThat) {
  const DatasetTable table = MakeComponentDatasets();
  const auto policy = [](const std::string& models) {
    return R"({"telemetryScope":"full","datasets":[{"id":"9492447A-FCAC-428E-B7A8-7F7918199480","name":"CPUEvent",
               "applicability":{"models":[")" +
           models + R"("]}}]})";
  };
  MonitorWorld world;
  world.config.SetPolicy(*ParseTelemetryPolicy(policy("*")).policy);
  ManagerLife life(world, table);
  life.Start();
  world.runtime.Settle();
  const std::string elsewhere = policy(std::string(100, 'x'));
  life.Change(*ParseTelemetryPolicy(elsewhere).policy);
  world.runtime.Settle();
  const EligibilityFilter device(life.composition.machine_services().machine_information.traits());
  const DatasetCheck check = CheckPolicy(elsewhere, std::nullopt, table, device).datasets.front();
  EXPECT_EQ(check.why, "not applicable");
  const ManagerStatus status = life.manager.access().Status();
  const auto cpu = std::ranges::find_if(status.datasets,
                                        [&](const DatasetStatus& each) { return each.dataset->row.id == check.id; });
  EXPECT_TRUE(cpu->runs);
  EXPECT_EQ(cpu->why(), "runs");
  EXPECT_EQ(cpu->detail, L"until the service starts anew: " + check.detail);
  EXPECT_TRUE(check.detail.ends_with(L"wanted " + std::wstring(64, L'x'))) << "of what is long, the begin";
}

bool Allows(const Json::Value& setting, const std::string& text) {
  if (setting.isMember("pattern")) return std::regex_match(text, std::regex(setting["pattern"].asString()));
  return std::ranges::any_of(setting["enum"], [&](const Json::Value& each) { return each == text; });
}

TEST(Answers, TheSchemaKnowsTheDatasetsAndTheirSettings) {
  constexpr const char* kTexts[] = {"1m",       "1h",       "1d",   "60000ms", "86400000ms", "90",        "1",
                                    "007",      "20",       "80",   "99",      "100",        "3600",      "auto",
                                    "1001",     "1111",     "10ms", "60s",     "disable",    "users",     "",
                                    "00000011", "00000000", "6000", "7d",      "24h",        "1-5,41,-7", "-1, 2"};
  Json::Value schema;
  std::istringstream(std::string(TelemetryPolicySchema())) >> schema;
  const Json::Value& rules = schema["$defs"]["dataset"]["allOf"];
  std::set<std::string> known;
  const DatasetTable table = MakeComponentDatasets();
  for (const Dataset& dataset : table.datasets()) {
    const std::string id = String::UTF16ToUTF8(dataset.row.id);
    const std::string name = String::UTF16ToUTF8(dataset.row.name);
    if (dataset.row.rule == DatasetRule::kDeviceContext) continue;  // no policy switches it
    SCOPED_TRACE(name);
    known.insert(id);
    const auto rule = std::find_if(rules.begin(), rules.end(), [&](const Json::Value& each) {
      return each["if"]["properties"]["id"]["const"] == id;
    });
    ASSERT_NE(rule, rules.end());
    const Json::Value& then = (*rule)["then"]["properties"];
    EXPECT_EQ(then["name"]["const"], name);
    EXPECT_EQ(then.isMember("settings"), dataset.collects) << "those that are not collected read none, and refuse none";
    if (!dataset.collects) continue;
    EXPECT_EQ(then["settings"]["additionalProperties"], false);
    std::vector<std::string> keys;
    for (const SettingReading& reading :
         dataset.read_settings ? dataset.read_settings({}) : std::vector<SettingReading>()) {
      keys.push_back(String::UTF16ToUTF8(reading.key));
      const Json::Value& setting = then["settings"]["properties"][keys.back()];
      EXPECT_FALSE(Allows(setting, "x")) << keys.back();
      for (const char* text : kTexts) {
        const auto readings = dataset.read_settings({{reading.key, String::UTF8ToUTF16(text)}});
        const auto read = std::ranges::find(readings, reading.key, &SettingReading::key);
        EXPECT_TRUE(!read->from_policy || Allows(setting, text)) << keys.back() << ' ' << text;
      }
    }
    EXPECT_THAT(then["settings"]["properties"].getMemberNames(), testing::UnorderedElementsAreArray(keys));
  }
  EXPECT_EQ(rules.size(), known.size());
  for (const Json::Value& id : schema["$defs"]["dataset"]["properties"]["id"]["enum"])
    EXPECT_EQ(known.erase(id.asString()), 1u) << id.asString();
  EXPECT_TRUE(known.empty());
}

}  // namespace
}  // namespace TVK
