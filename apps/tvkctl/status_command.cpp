#include "apps/tvkctl/status_command.h"

#include <json/reader.h>

#include <iomanip>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "apps/exit_code.h"
#include "apps/tvkctl/output.h"
#include "client/channel/channel_client.h"
#include "client/text/string.h"

namespace tvkctl {
namespace {

std::wstring Text(const Json::Value& object, const char* key) {
  const Json::Value value = object.get(key, "");
  return value.isString() ? TVK::String::UTF8ToUTF16(value.asString()) : std::wstring();
}

// As people read it: "2026-01-31 09:05:00".
std::wstring Time(const Json::Value& object, const char* key) {
  std::wstring time = Text(object, key).substr(0, 19);
  if (time.size() > 10) time[10] = L' ';
  return time;
}

// What runs and what policy and scope say are not the same for a moment: something starts or ends.
std::wstring State(const Json::Value& dataset) {
  const bool runs = dataset.get("runs", false).asBool();
  const std::wstring why = Text(dataset, "why");
  if (runs != (why == L"runs")) return runs ? L"ends: " + why : L"does not run";
  return runs && !dataset.get("collects", false).asBool() ? L"runs, collects nothing" : why;
}

void WriteForPeople(const Json::Value& status, std::ostream& out) {
  const Json::Value& store = status["store"];
  const Json::Value& process = status["process"];
  std::vector<std::vector<std::wstring>> rows = {
      {L"up since", Time(status, "up_since")},
      {L"version", Text(status, "version")},
      {L"policy", Text(status, "policy")},
      {L"scope", Text(status, "scope")},
      {L"store",
       store.isMember("problem") ? Text(store, "problem") : std::to_wstring(store["bytes"].asUInt64()) + L" bytes"},
      {L"oldest record", Time(store, "oldest_record")},
      {L"records refused", std::to_wstring(store["refused"].asUInt64())},
      {L"processor time", std::to_wstring(process["processor_ms"].asInt64()) + L" ms"},
      {L"memory", std::to_wstring(process["memory_bytes"].asUInt64() / 1024) + L" KiB"},
  };
  const Json::Value& refused = status["channel_refused"];
  for (const std::string& kind : refused.getMemberNames()) {
    const std::uint64_t count = refused[kind].asUInt64();
    if (count > 0)
      rows.push_back({L"callers refused", TVK::String::UTF8ToUTF16(kind) + L": " + std::to_wstring(count)});
  }
  WriteColumns(rows, out);
  out << '\n';
  rows = {{L"DATASET", L"STATE", L"SINCE", L"LAST RECORD", L"NEXT DUE", L"LAST ERROR"}};
  for (const Json::Value& dataset : status["datasets"]) {
    rows.push_back({Text(dataset, "name"), State(dataset), Time(dataset, "since"), Time(dataset, "last_record"),
                    Time(dataset, "next_due"), Text(dataset, "last_error")});
  }
  WriteColumns(rows, out);
}

}  // namespace

int RunStatus(const StatusOptions& options, platform::Runtime& runtime, std::ostream& out, std::ostream& errors) {
  TVK::ChannelClient client(runtime, options.place);
  const TVK::ChannelAnswer answer = client.Ask({.wish = TVK::ChannelWish::kStatus});
  if (answer.result != 0) {
    errors << "tvkctl: " << TVK::HarmlessText(answer.reason) << '\n';
    return kExitFailed;
  }
  Json::Value status;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  if (!reader->parse(answer.body.data(), answer.body.data() + answer.body.size(), &status, nullptr) ||
      !status.isObject()) {
    errors << "tvkctl: the service answers something that is no status\n";
    return kExitFailed;
  }
  options.json ? WriteJsonLine(status, out) : WriteForPeople(status, out);
  if (status.get("up", false).asBool()) return kExitOk;
  errors << "tvkctl: the service is there, but it does not run\n";
  return kExitFailed;
}

}  // namespace tvkctl
