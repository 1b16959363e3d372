#include "component/service_status.h"

#include <json/writer.h>

#include <chrono>

#include "client/policy/problem_list.h"
#include "client/store/store_summary.h"
#include "client/text/record_time.h"
#include "client/text/string.h"
#include "component/policy_watch.h"
#include "platform/files.h"
#include "platform/process_usage.h"

namespace TVK {
namespace {

std::string Utf8(std::wstring_view text) {
  return String::UTF16ToUTF8(std::wstring(text));
}

constexpr std::size_t kLongestProblem = 512;  // which may hold what stands in a file

Json::Value TimeValue(std::int64_t unix_seconds, const platform::Clock& clock) {
  return Utf8(FormatRecordTime(unix_seconds, clock));
}

Json::Value TimeValue(platform::WallTime time, const platform::Clock& clock) {
  return TimeValue(std::chrono::floor<std::chrono::seconds>(time.time_since_epoch()).count(), clock);
}

Json::Value StoreValue(const StoreSummary& summary, const platform::Clock& clock) {
  Json::Value value;
  value["bytes"] = Json::Value::UInt64(summary.bytes);
  if (summary.oldest_seconds) value["oldest_record"] = TimeValue(*summary.oldest_seconds, clock);
  return value;
}

Json::Value DatasetValue(const DatasetStatus& status, const StoreSummary* store, const LastErrors* errors,
                         const platform::Clock& clock) {
  const DatasetRow& row = status.dataset->row;
  Json::Value value;
  value["name"] = Utf8(row.name);
  value["id"] = Utf8(row.id);
  value["runs"] = status.runs;
  value["why"] = std::string(status.why());
  if (!status.detail.empty()) value["detail"] = HarmlessText(Utf8(status.detail));
  value["collects"] = status.dataset->collects || row.rule == DatasetRule::kDeviceContext;
  if (status.since) value["since"] = TimeValue(*status.since, clock);
  if (store != nullptr) {
    const auto last = store->last_seconds_by_dataset.find(row.rule == DatasetRule::kDeviceContext ? "" : Utf8(row.id));
    if (last != store->last_seconds_by_dataset.end()) value["last_record"] = TimeValue(last->second, clock);
  }
  if (status.next_due) {
    const auto left = std::chrono::floor<std::chrono::milliseconds>(*status.next_due - clock.Elapsed());
    value["next_due"] = TimeValue(clock.Now() + left, clock);
  }
  const std::wstring error =
      errors == nullptr || row.log.empty() ? std::wstring() : errors->Of(std::wstring(row.log) + L".log");
  if (!error.empty()) value["last_error"] = HarmlessText(Utf8(error));
  return value;
}

std::string_view OriginName(PolicyOrigin origin) {
  switch (origin) {
    case PolicyOrigin::kNone:
      return "none";
    case PolicyOrigin::kFile:
      return "file";
    case PolicyOrigin::kLastGood:
      return "last good copy";
  }
  return "";
}

// What of the policy somebody should look at; empty: nothing.
std::string Concern(const PolicyStanding& standing) {
  switch (standing.origin) {
    case PolicyOrigin::kFile:
      return {};
    case PolicyOrigin::kLastGood:
      return "the policy file is not in force, what it said before is: " + standing.problem;
    case PolicyOrigin::kNone:
      break;
  }
  if (standing.problem.empty()) return std::string(kTelemetryPolicyGone);
  return "the policy file cannot be used, and nothing is collected: " + standing.problem;
}

// What somebody should look at, for people.
Json::Value Concerns(const Json::Value& status, const std::string& policy_concern) {
  Json::Value concerns(Json::arrayValue);
  if (!policy_concern.empty()) concerns.append(HarmlessText(policy_concern));
  const Json::Value& store = status["store"];
  if (store.isMember("problem")) concerns.append("the event store cannot be read: " + store["problem"].asString());
  if (store["failing"].asBool()) {
    concerns.append("the event store could not take " + store["refused"].asString() + " records since the start");
  }
  for (const Json::Value& dataset : status["datasets"]) {
    const std::string monitor = "the monitor of " + dataset["name"].asString();
    if (dataset["why"] == "failed") concerns.append(monitor + " ended with an error; EventManager.log says which");
    if (dataset["why"] == "not started") concerns.append(monitor + " could not be started; EventManager.log says why");
  }
  return concerns;
}

}  // namespace

std::string ServiceStatus::ToJson(ManagerAccess& manager, const Refusals& refusals) const {
  const platform::Clock& clock = sources_.runtime.clock();
  const ManagerStatus status = manager.Status();
  Json::Value value;
  value["now"] = TimeValue(clock.Now(), clock);
  value["up"] = status.runs;
  value["up_since"] = TimeValue(up_since_, clock);
  value["version"] = Utf8(sources_.tvk_info.GetVersion());
  if (!sources_.policy_file.empty()) value["policy"] = platform::PathToUtf8(sources_.policy_file);
  std::string policy_concern;
  if (sources_.policy_standing) {
    PolicyStanding standing = sources_.policy_standing();
    standing.problem = Clip(standing.problem, kLongestProblem);
    value["policy_state"] = std::string(OriginName(standing.origin));
    if (!standing.problem.empty()) value["policy_problem"] = HarmlessText(standing.problem);
    policy_concern = Concern(standing);
  }
  value["scope"] = Utf8(status.scope);
  std::string problem;
  const std::optional<StoreSummary> store = ReadStoreSummary(sources_.store_file, problem);
  value["store"] = store ? StoreValue(*store, clock) : Json::Value(Json::objectValue);
  if (!store) value["store"]["problem"] = HarmlessText(Clip(problem, kLongestProblem));
  value["store"]["refused"] = Json::Value::UInt64(sources_.store.refused());
  value["store"]["failing"] = sources_.store.failing();
  const auto counts = refusals.counts();
  for (std::size_t i = 0; i < counts.size(); ++i)
    value["channel_refused"][std::string(RefusalName(static_cast<Refusal>(i)))] = Json::Value::UInt64(counts[i]);
  const platform::ProcessUsage usage = platform::ReadProcessUsage();
  value["process"]["processor_ms"] = Json::Value::Int64(usage.processor_time.count());
  value["process"]["memory_bytes"] = Json::Value::UInt64(usage.memory_bytes);
  for (const DatasetStatus& dataset : status.datasets)
    value["datasets"].append(DatasetValue(dataset, store ? &*store : nullptr, sources_.errors.get(), clock));
  value["attention"] = Concerns(value, policy_concern);
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, value);
}

}  // namespace TVK
