// The policy in force of a running service, as a document that is checked.
#include "apps/tvkctl/policy_commands.h"
#include "apps/tvkctl/status_command.h"
#include "client/channel/channel_client.h"
#include "client/policy/policy_document.h"
#include "client/text/string.h"
#include "platform/files.h"

namespace {

using TVK::String;

// As far as the service tells this account how it stands.
PolicyContent ContentOf(const Json::Value& status) {
  PolicyContent content;
  content.scope = String::UTF8ToUTF16(status.get("scope", "").asString());
  const std::string file = status.get("policy", "").asString();
  const std::string state = status.get("policy_state", "").asString();
  if (state == "file") {
    // The file itself: what is wrong with it, and does not keep it from being in force, is in no answer.
    PolicyContent of_file = ReadPolicyFile(platform::PathFromUtf8(file));
    content.text = std::move(of_file.text);
  } else if (state == "last good copy") {
    content.remarks.push_back(
        file + " is not in force, what it said before is: " + status.get("policy_problem", "").asString());
  }
  for (const Json::Value& dataset : status["datasets"]) {
    if (dataset.get("runs", false).asBool()) content.running.insert(String::UTF8ToUTF16(dataset["id"].asString()));
  }
  return content;
}

}  // namespace

PolicyContent WithPolicyInForce(PolicyContent of_file, std::string in_force) {
  if (of_file.text && TVK::ParseTelemetryPolicy(*of_file.text).policy == TVK::ParseTelemetryPolicy(in_force).policy) {
    return of_file;
  }
  if (of_file.text) {
    of_file.remarks.emplace_back(
        "the policy's file says something else than what is in force, which is shown: it was edited since then");
  }
  of_file.text = std::move(in_force);
  return of_file;
}

PolicyCheckOptions::Document PolicyInForce(std::filesystem::path place, platform::Runtime& runtime) {
  return {"the policy in force", [place = std::move(place), &runtime] {
            std::string ignored;  // not for every account; the policy is for more
            const auto status = tvkctl::AskStatus(place, runtime, ignored);
            PolicyContent content = status ? ContentOf(*status) : PolicyContent();
            TVK::ChannelAnswer answer = TVK::ChannelClient(runtime, place).Ask({.wish = TVK::ChannelWish::kPolicy});
            if (answer.result != 0) {
              content.text.reset();  // the file's alone is not what is in force
              content.problem = answer.reason;
              if (answer.delivery == TVK::ChannelAnswer::Delivery::kUnsent)
                content.problem += "; FILE names one to check";
              return content;
            }
            return WithPolicyInForce(std::move(content), std::move(answer.body));
          }};
}
