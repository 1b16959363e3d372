#include "client/policy/policy_document.h"

#include <algorithm>
#include <array>
#include <set>

#include "client/policy/object_reader.h"
#include "client/policy/problem_list.h"
#include "client/policy/report_readers.h"
#include "client/policy/strict_json.h"
#include "client/text/string.h"

namespace TVK {

namespace {

constexpr std::array<std::wstring_view, 4> kScopes = {L"none", L"basic", L"enhance", L"full"};

// Numbers joined by single dots: "10.0.19045".
bool IsVersion(std::wstring_view text) {
  bool after_digit = false;
  for (const wchar_t c : text) {
    const bool digit = c >= L'0' && c <= L'9';
    if (!digit && (c != L'.' || !after_digit)) return false;
    after_digit = digit;
  }
  return after_digit;
}

void ReadVersion(ObjectReader& reader, const char* key, std::wstring& version) {
  reader.Text(key, Presence::kOptional, version);
  if (!version.empty() && !IsVersion(version))
    reader.Refuse(key, "numbers joined by dots are expected, such as 10.0.19045");
}

void ReadFilter(ObjectReader& parent, ProblemList& problems, ApplicabilityFilter& filter) {
  const Json::Value* object = parent.Object("applicability");
  if (object == nullptr) return;
  ObjectReader reader(*object, parent.PathOf("applicability"), problems);
  reader.Names("models", filter.models);
  reader.Names("manufacturers", filter.manufacturers);
  reader.Names("brands", filter.brands);
  reader.Names("osNames", filter.os_names);
  ReadVersion(reader, "osVersionMin", filter.os_version_min);
  ReadVersion(reader, "osVersionMax", filter.os_version_max);
  reader.ReportUnknownKeys();
}

DataSet ReadDataSet(const Json::Value& object, const std::string& path, ProblemList& problems) {
  DataSet dataset;
  ObjectReader reader(object, path, problems);
  reader.Name("id", Presence::kRequired, dataset.id);
  reader.Name("name", Presence::kRequired, dataset.name);
  reader.Flag("enabled", dataset.enabled);
  ReadFilter(reader, problems, dataset.applicability);
  reader.Texts("settings", dataset.settings);
  reader.ReportUnknownKeys();
  return dataset;
}

TelemetryPolicy ReadPolicy(const Json::Value& root, ProblemList& problems) {
  TelemetryPolicy policy;
  ObjectReader reader(root, "", problems);
  std::wstring schema;  // for editors, which find the schema by it
  reader.Text("$schema", Presence::kOptional, schema);
  reader.Text("telemetryScope", Presence::kRequired, policy.telemetry_scope);
  if (!IsTelemetryScope(policy.telemetry_scope)) {
    reader.Refuse("telemetryScope", "\"" + Clip(String::UTF16ToUTF8(policy.telemetry_scope)) +
                                        "\" is no scope: none, basic, enhance and full are");
  }
  ReadFilter(reader, problems, policy.applicability);
  const std::set<std::string> settings = {String::UTF16ToUTF8(kNoHashNetworkDataSetting),
                                          String::UTF16ToUTF8(kReportReadersSetting)};
  reader.Texts("settings", policy.settings, &settings);
  if (const Json::Value* list = reader.List("datasets", Presence::kRequired)) {
    for (Json::ArrayIndex i = 0; i < list->size(); ++i) {
      const std::string path = "datasets[" + std::to_string(i) + "]";
      if (HasType((*list)[i], Json::objectValue, path, problems)) {
        policy.datasets.push_back(ReadDataSet((*list)[i], path, problems));
      }
    }
  }
  reader.ReportUnknownKeys();
  return policy;
}

}  // namespace

bool IsTelemetryScope(std::wstring_view scope) {
  return std::ranges::find(kScopes, scope) != kScopes.end();
}

std::optional<TelemetryPolicy> ReadTelemetryPolicy(std::string_view json, ProblemList& problems) {
  const auto root = ReadStrictJson(json, problems);
  if (!root) return std::nullopt;
  TelemetryPolicy policy = ReadPolicy(*root, problems);
  if (problems.HasFatal()) return std::nullopt;
  return policy;
}

PolicyDocument ParseTelemetryPolicy(std::string_view json) {
  ProblemList problems;
  PolicyDocument document;
  document.policy = ReadTelemetryPolicy(json, problems);
  document.problems = problems.Take();
  return document;
}

TvkPolicyDocument ParseTvkPolicy(std::string_view json) {
  ProblemList problems;
  TvkPolicyDocument document;
  if (const auto root = ReadStrictJson(json, problems)) {
    TvkPolicy policy;
    ObjectReader reader(*root, "", problems);
    reader.Text("devicePath", Presence::kOptional, policy.device_path);
    reader.Text("deviceSubscription", Presence::kOptional, policy.device_subscription);
    reader.ReportUnknownKeys();
    if (!problems.HasFatal()) document.policy = std::move(policy);
  }
  document.problems = problems.Take();
  return document;
}

}  // namespace TVK
