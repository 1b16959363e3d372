#include "apps/tvkctl/report/asked_report.h"

#include <json/reader.h>

#include <memory>

#include "client/channel/channel_client.h"
#include "client/report/report_json.h"
#include "client/text/string.h"

namespace tvkctl {
namespace {

// What a report holds is nested half as deep.
constexpr int kDeepest = 16;

Json::Value Parsed(const std::string& text) {
  Json::CharReaderBuilder builder;
  builder["stackLimit"] = kDeepest;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  try {
    if (!reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) return {};
  } catch (const Json::Exception&) {  // jsoncpp reports nesting beyond the limit so
    return {};
  }
  return value;
}

}  // namespace

bool AskReport(const std::filesystem::path& place, std::optional<std::int64_t> since, platform::Runtime& runtime,
               TVK::Report& report, Standing& standing, std::string& problem) {
  const TVK::ChannelAnswer answer =
      TVK::ChannelClient(runtime, place).Ask({.wish = TVK::ChannelWish::kReport, .since_seconds = since});
  problem = TVK::HarmlessText(answer.reason);
  if (answer.result != 0) return false;
  if (ReadToldReport(answer.body, report, standing)) return true;
  problem = "the service answers something that is no report";
  return false;
}

bool ReadToldReport(const std::string& text, TVK::Report& report, Standing& standing) {
  const Json::Value value = Parsed(text);
  std::optional<TVK::Report> told;
  if (value.isObject() && value["status"].isObject()) told = TVK::ReportFromJson(value["report"]);
  if (!told) return false;
  report = *std::move(told);
  standing = StandingFromStatus(value["status"]);
  return true;
}

}  // namespace tvkctl
