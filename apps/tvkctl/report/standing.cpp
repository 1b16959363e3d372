#include "apps/tvkctl/report/standing.h"

#include "apps/tvkctl/policy_check.h"
#include "apps/tvkctl/service_files.h"
#include "apps/tvkctl/status_command.h"
#include "client/policy/config_agent.h"
#include "client/text/string.h"
#include "platform/files.h"

namespace tvkctl {
namespace {

using TVK::String;

void TakeCommon(const Json::Value& value, Standing& standing) {
  const auto text = [&](const char* key) { return value[key].isString() ? value[key].asString() : std::string(); };
  standing.scope = text("scope");
  standing.problem = text("policy_problem");
  if (!text("policy").empty()) standing.policy_file = text("policy");
}

void TakePolicy(const std::string& json, const StandingSources& sources, const TVK::DatasetTable& table,
                Standing& standing) {
  const PolicyReport report = CheckPolicy(json, std::nullopt, table, EligibilityFilter(sources.traits()));
  for (const DatasetCheck& check : report.datasets) {
    std::string why = check.runs() ? std::string() : std::string(check.why);
    if (!check.detail.empty()) why += ": " + String::UTF16ToUTF8(check.detail);
    const char* const state = !check.runs() ? "-" : check.collects ? "to run" : "collects nothing yet";
    standing.datasets.push_back({String::UTF16ToUTF8(check.name), state, std::move(why)});
  }
}

}  // namespace

Standing StandingFromStatus(const Json::Value& status) {
  Standing standing;
  standing.answered = true;
  standing.up = status["up"].isBool() && status["up"].asBool();
  TakeCommon(status, standing);
  for (const Json::Value& dataset : status["datasets"]) {
    if (!dataset.isObject() || !dataset["name"].isString()) continue;
    standing.datasets.push_back({dataset["name"].asString(), String::UTF16ToUTF8(DatasetState(dataset)),
                                 String::UTF16ToUTF8(DatasetWhy(dataset))});
  }
  return standing;
}

Standing AskStanding(const StandingSources& sources, const TVK::DatasetTable& table, platform::Runtime& runtime) {
  Standing standing;
  standing.policy_file = platform::PathToUtf8(sources.policy_file);
  bool refused = false;
  if (const auto status = AskStatus(sources.place, runtime, standing.no_answer, &refused)) {
    return StandingFromStatus(*status);
  }
  if (!refused) standing.up = false;
  const Json::Value files = ReadServiceFiles(sources.policy_file, sources.data_folder, runtime.clock());
  TakeCommon(files, standing);
  const std::string state = files.get("policy_state", "").asString();
  if (state != "file" && state != "last good copy") return standing;
  const std::filesystem::path file =
      state == "file" ? sources.policy_file : sources.data_folder / kLastGoodPolicyFileName;
  if (const auto json = platform::ReadWholeFile(file, TVK::kPolicySizeLimit)) {
    TakePolicy(*json, sources, table, standing);
  }
  return standing;
}

}  // namespace tvkctl
