#include "apps/tvkctl/service_files.h"

#include <algorithm>

#include "client/policy/config_agent.h"
#include "client/store/event_data_logging.h"
#include "client/store/store_summary.h"
#include "client/text/record_time.h"
#include "client/text/string.h"
#include "platform/files.h"

namespace tvkctl {
namespace {

using TVK::String;

// The policy of the file; without one, why, and nothing where there is no file. `unreadable`: the service may read what
// this account cannot.
std::optional<TelemetryPolicy> ReadPolicy(const std::filesystem::path& file, std::string& problem, bool& unreadable) {
  platform::FileProblem fault;
  const std::optional<std::string> text = platform::ReadWholeFile(file, TVK::kPolicySizeLimit, &fault);
  if (!text) {
    unreadable = fault.fault == platform::FileFault::kUnreadable;
    if (fault.fault != platform::FileFault::kAbsent) problem = fault.text;
    return std::nullopt;
  }
  TVK::PolicyDocument document = TVK::ParseTelemetryPolicy(*text);
  if (!document.policy) problem = document.problems.front().path + ": " + document.problems.front().message;
  return document.policy;
}

Json::Value StoreValue(const std::filesystem::path& file, const platform::Clock& clock) {
  const auto time = [&](std::int64_t seconds) { return String::UTF16ToUTF8(TVK::FormatRecordTime(seconds, clock)); };
  Json::Value value(Json::objectValue);
  std::string problem;
  const std::optional<TVK::StoreSummary> summary = TVK::ReadStoreSummary(file, problem);
  if (!summary) {
    value["problem"] = TVK::HarmlessText(problem);
    return value;
  }
  value["bytes"] = Json::Value::UInt64(summary->bytes);
  if (summary->oldest_seconds) value["oldest_record"] = time(*summary->oldest_seconds);
  std::int64_t last = 0;
  for (const auto& [dataset, seconds] : summary->last_seconds_by_dataset)
    last = std::max(last, seconds);
  if (last > 0) value["last_record"] = time(last);
  return value;
}

}  // namespace

Json::Value ReadServiceFiles(const std::filesystem::path& policy_file, const std::filesystem::path& data_folder,
                             const platform::Clock& clock) {
  Json::Value value;
  value["policy"] = TVK::HarmlessText(platform::PathToUtf8(policy_file));
  std::string problem;
  bool unreadable = false;
  std::optional<TelemetryPolicy> policy = ReadPolicy(policy_file, problem, unreadable);
  const char* origin = policy ? "file" : "none";
  // A file that is gone withdraws the consent: the copy stands in for one that cannot be used.
  if (!policy && !problem.empty()) {
    value["policy_problem"] = TVK::HarmlessText(problem);
    std::string ignored;
    if (!unreadable) policy = ReadPolicy(data_folder / kLastGoodPolicyFileName, ignored, unreadable);
    if (policy) origin = "last good copy";
  }
  if (!unreadable) value["policy_state"] = origin;
  if (policy) value["scope"] = String::UTF16ToUTF8(policy->telemetry_scope);
  value["store"] = StoreValue(data_folder / TVK::kStoreFileName, clock);
  return value;
}

}  // namespace tvkctl
