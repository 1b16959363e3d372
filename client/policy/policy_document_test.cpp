#include "client/policy/policy_document.h"

#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/writer.h>

#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>

#include "testing/source_tree.h"

namespace TVK {
namespace {

constexpr char kFull[] = R"({
  "$schema": "policy.schema.json", "telemetryScope": "basic",
  "applicability": {"models": ["M*"], "manufacturers": ["F"], "brands": ["B"], "osNames": ["Linux"],
                    "osVersionMin": "6.1", "osVersionMax": ""},
  "settings": {"No_hash_network_data": "true", "ReportReaders": "users"},
  "datasets": [{"id": "ID", "name": "N\u00e4", "enabled": false, "applicability": {"models": ["X"]},
                "settings": {"A": "1", "B": ""}},
               {"id": "ID2", "name": "Two"}]
})";

std::string Describe(const std::vector<PolicyProblem>& problems) {
  std::string text;
  for (const PolicyProblem& problem : problems) {
    text += (problem.fatal ? "fatal " : "error ") + problem.path + ": " + problem.message + "\n";
  }
  return text;
}

std::string FileText(const std::string& name) {
  std::ifstream file(FromSourceTree("config/" + name), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

Json::Value ToJson(std::string_view text) {
  Json::Value value;
  std::istringstream stream{std::string(text)};
  stream >> value;
  return value;
}

TEST(PolicyDocumentTest, ReadsEveryKey) {
  const PolicyDocument document = ParseTelemetryPolicy(kFull);
  ASSERT_TRUE(document.policy);
  EXPECT_EQ(Describe(document.problems), "");
  const TelemetryPolicy& policy = *document.policy;
  EXPECT_EQ(policy.telemetry_scope, L"basic");
  EXPECT_EQ(policy.applicability, (ApplicabilityFilter{{L"M*"}, {L"F"}, {L"B"}, {L"Linux"}, L"6.1", L""}));
  EXPECT_EQ(policy.Setting(L"No_hash_network_data"), L"true");
  EXPECT_EQ(policy.Setting(L"other"), L"");
  const std::list<DataSet> datasets = {
      {L"ID", L"N\u00e4", false, {{L"X"}, {}, {}, {}, L"", L""}, {{L"A", L"1"}, {L"B", L""}}},
      {L"ID2", L"Two", true, {}, {}}};
  EXPECT_EQ(policy.datasets, datasets);
}

TEST(PolicyDocumentTest, NamesEveryProblemWithItsPath) {
  struct Row {
    std::string json;
    std::string problems;
  };
  const std::string start = R"({"telemetryScope":"full","datasets":[)";
  for (const Row& row : {
           Row{"", "fatal : the document is empty\n"},
           Row{" \n", "fatal : the document is empty\n"},
           Row{"[]", "fatal : an object is expected\n"},
           Row{"{", "fatal line 1, column 2: Missing '}' or object member name\n"},
           Row{"{\n \"a//\\\"\": 1, // x\n}", "fatal line 2, column 14: JSON has no comments\n"},
           Row{"{/**/\"telemetryScope\":\"full\"}", "fatal line 1, column 2: JSON has no comments\n"},
           Row{R"({"telemetryScope":"full","telemetryScope":"none","datasets":[]})",
               "fatal line 1, column 26: Duplicate key: 'telemetryScope'\n"},
           Row{start + "]} x", "fatal line 1, column 41: Extra non-whitespace after JSON value\n"},
           Row{start + "]}\n\"\xC3(\"", "fatal line 2, column 2: the text is not well-formed UTF-8\n"},
           Row{std::string(200000, '['), "fatal line 1, column 33: the document is nested deeper than 32 levels\n"},
           Row{R"({"x":"[\"[",)" + std::string("\n\"y\":") + std::string(31, '[') + std::string(31, ']') + "}",
               "fatal telemetryScope: the key is missing\nfatal datasets: the key is missing\n"
               "error x: the key is unknown and has no effect\nerror y: the key is unknown and has no effect\n"},
           Row{start + "]}\n" + std::string("\0{}", 3), "fatal line 2, column 1: the text holds a NUL byte\n"},
           Row{std::string(1 << 20, ' '), "fatal : the document is empty\n"},
           Row{std::string((1 << 20) + 1, ' '), "fatal : the document is longer than 1048576 bytes\n"},
           Row{std::string(10 << 20, '['), "fatal : the document is longer than 1048576 bytes\n"},
           Row{"{}", "fatal telemetryScope: the key is missing\nfatal datasets: the key is missing\n"},
           Row{R"({"telemetryScope":"Full","datasets":{}})",
               "fatal telemetryScope: \"Full\" is no scope: none, basic, enhance and full are\n"
               "fatal datasets: a list is expected, not an object\n"},
           Row{R"({"telemetryScope":1,"datasets":[]})", "fatal telemetryScope: a text is expected, not a number\n"},
           Row{start + R"(7,{"name":"","id":null,"enabled":"yes","zeta":1,"alpha":2}]})",
               "fatal datasets[0]: an object is expected, not a number\n"
               "fatal datasets[1].name: the text must not be empty\n"
               "fatal datasets[1].id: a text is expected, not null\n"
               "fatal datasets[1].enabled: true or false is expected, not a text\n"
               "error datasets[1].zeta: the key is unknown and has no effect\n"
               "error datasets[1].alpha: the key is unknown and has no effect\n"},
           Row{start + R"({"id":"I","name":"N","settings":{"P":90,"Q":"a\u0007","C1":"\u009b","R":"\udc00x"}}]})",
               "fatal datasets[0].settings.P: a text is expected, not a number\n"
               "fatal datasets[0].settings.Q: the text holds a control character\n"
               "fatal datasets[0].settings.C1: the text holds a control character\n"
               "fatal datasets[0].settings.R: the text holds half of a surrogate pair\n"},
           Row{start + R"(],"applicability":{"models":["",3],"osVersionMin":"10.","osVersionMax":"a","os":1}})",
               "fatal applicability.models[0]: the text must not be empty\n"
               "fatal applicability.models[1]: a text is expected, not a number\n"
               "fatal applicability.osVersionMin: numbers joined by dots are expected, such as 10.0.19045\n"
               "fatal applicability.osVersionMax: numbers joined by dots are expected, such as 10.0.19045\n"
               "error applicability.os: the key is unknown and has no effect\n"},
           Row{start + R"(],"settings":{"No_hash_network":"true","No_hash_network_data":"true"}})",
               "error settings.No_hash_network: the key is unknown and has no effect\n"},
           Row{start + R"(],"a\u001b[2J\u009b2J":0})", "error a?[2J?2J: the key is unknown and has no effect\n"},
       }) {
    SCOPED_TRACE(row.json.substr(0, 200));
    const PolicyDocument document = ParseTelemetryPolicy(row.json);
    EXPECT_EQ(Describe(document.problems), row.problems);
    EXPECT_EQ(document.policy.has_value(), row.problems.find("fatal") == std::string::npos);
  }
}

TEST(PolicyDocumentTest, DefaultFilesHaveNoProblems) {
  const PolicyDocument policy = ParseTelemetryPolicy(FileText("policy.default.json"));
  EXPECT_EQ(Describe(policy.problems), "");
  ASSERT_TRUE(policy.policy);
  EXPECT_EQ(policy.policy->datasets.size(), 25u);
  const TvkPolicyDocument client = ParseTvkPolicy(FileText("client-policy.default.json"));
  ASSERT_TRUE(client.policy);
  EXPECT_EQ(*client.policy, TvkPolicy());
}

// kFull with another object in the place of the one at `path`.
std::string Changed(const std::string& path, const std::function<void(Json::Value& object)>& change) {
  Json::Value copy = ToJson(kFull);
  change(Json::Path(path).make(copy));
  return Json::writeString(Json::StreamWriterBuilder(), copy);
}

// Every key of the schema must be one that the reader knows (a wrong type is refused, not passed over), and the
// reader's document must use no other.
TEST(PolicyDocumentTest, SchemaAndReaderAgree) {
  EXPECT_EQ(TelemetryPolicySchema(), FileText("policy.schema.json"));
  const Json::Value schema = ToJson(TelemetryPolicySchema());
  const Json::Value full = ToJson(kFull);
  for (const auto& [part, path] : {std::pair(schema, std::string()),
                                   {schema["properties"]["settings"], "settings."},
                                   {schema["$defs"]["dataset"], "datasets[0]."},
                                   {schema["$defs"]["applicability"], "applicability."}}) {
    const Json::Value& properties = part["properties"];
    EXPECT_EQ(properties.getMemberNames(), Json::Path(path).resolve(full).getMemberNames()) << path;
    for (const std::string& key : properties.getMemberNames()) {
      SCOPED_TRACE(path + key);
      const std::string with_null = Changed(path, [&](Json::Value& object) { object[key] = Json::Value(); });
      const PolicyDocument document = ParseTelemetryPolicy(with_null);
      ASSERT_FALSE(document.problems.empty());
      EXPECT_EQ(document.problems[0].path, path + key);
      EXPECT_NE(document.problems[0].message.find(" is expected, not null"), std::string::npos);
      EXPECT_NE(properties[key].get("description", "").asString(), "");
    }
    for (const Json::Value& key : part["required"]) {
      const std::string without = Changed(path, [&](Json::Value& object) { object.removeMember(key.asString()); });
      EXPECT_EQ(Describe(ParseTelemetryPolicy(without).problems),
                "fatal " + path + key.asString() + ": the key is missing\n");
    }
  }
  for (const Json::Value& scope : schema["properties"]["telemetryScope"]["enum"]) {
    const std::string with = Changed("", [&](Json::Value& object) { object["telemetryScope"] = scope; });
    EXPECT_TRUE(ParseTelemetryPolicy(with).policy) << scope.asString();
  }
}

}  // namespace

}  // namespace TVK
