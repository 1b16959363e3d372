#include "component/service_report.h"

#include <json/reader.h>
#include <json/writer.h>

#include <memory>

#include "client/report/report_builder.h"
#include "client/report/report_json.h"
#include "client/store/store_summary.h"
#include "client/text/string.h"

namespace TVK {
namespace {

Json::Value Selected(const Json::Value& object, std::initializer_list<const char*> keys) {
  Json::Value selected(Json::objectValue);
  for (const char* const key : keys) {
    if (object.isMember(key)) selected[key] = object[key];
  }
  return selected;
}

// Errors, what the process takes and who was refused are the administrator's affair.
Json::Value OwnersStatus(const std::string& text) {
  Json::Value status;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  if (!reader->parse(text.data(), text.data() + text.size(), &status, nullptr)) return Json::objectValue;
  Json::Value told = Selected(status, {"up", "policy", "policy_problem", "scope"});
  for (const Json::Value& dataset : status["datasets"])
    told["datasets"].append(Selected(dataset, {"name", "runs", "collects", "why", "detail"}));
  return told;
}

}  // namespace

std::optional<std::string> ServiceReport(const std::filesystem::path& store_file,
                                         std::optional<std::int64_t> since_seconds, const std::string& status,
                                         const std::function<bool()>& goes_on,
                                         const std::function<bool(const std::string&)>& fits,
                                         const platform::Clock& clock, std::string& problem) {
  const std::unique_ptr<RecordReader> reader = RecordReader::Open(store_file, problem);
  Report report;
  const ReportQuery query{.since_seconds = since_seconds, .progress = [&](double /*part*/) { return goes_on(); }};
  if (reader == nullptr || !BuildReport(*reader, query, clock, report, problem)) {
    problem = "the event store cannot be read: " + HarmlessText(problem);
    return std::nullopt;
  }
  report.store_bytes = StoreBytes(store_file);
  Json::Value value;
  value["status"] = OwnersStatus(status);
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  builder["precision"] = 9;
  std::string text;
  do {
    value["report"] = ReportToJson(report);
    text = Json::writeString(builder, value);
  } while (!fits(text) && Shorten(report));
  return text;
}

}  // namespace TVK
