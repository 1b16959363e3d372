#include "apps/tvkctl/status_command.h"

#include <json/reader.h>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "apps/exit_code.h"
#include "apps/tvkctl/output.h"
#include "apps/tvkctl/service_files.h"
#include "apps/tvkctl/time_text.h"
#include "client/channel/channel_client.h"
#include "client/text/record_time.h"
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

/// Writes a status for people.
class Screen {
 public:
  Screen(const Json::Value& status, const platform::Clock& clock, std::ostream& out, std::size_t width)
      : status_(status), clock_(clock), out_(out), width_(width), now_(Seconds(status, "now")) {}

  void Write() {
    for (const Json::Value& concern : status_["attention"])
      rows_.push_back({L"ATTENTION", TVK::String::UTF8ToUTF16(concern.asString())});
    const bool up = status_.get("up", false).asBool();
    const std::wstring state = up ? L"up since " + Time(status_, "up_since") + L" (" + Ago(status_, "up_since") + L")"
                                  : L"there, but it does not run";
    rows_.push_back({L"service", state + L", version " + Text(status_, "version")});
    AddFiles();
    const Json::Value& process = status_["process"];
    rows_.push_back({L"processor time", std::to_wstring(process["processor_ms"].asInt64()) + L" ms"});
    rows_.push_back({L"memory", std::to_wstring(process["memory_bytes"].asUInt64() / 1024) + L" KiB"});
    AddRefused();
    Flush();
    out_ << '\n';
    rows_ = {{L"DATASET", L"STATE", L"SINCE", L"LAST RECORD", L"NEXT DUE", L"WHY"}};
    for (const Json::Value& dataset : status_["datasets"]) {
      rows_.push_back({Text(dataset, "name"), DatasetState(dataset), Since(dataset), Ago(dataset, "last_record"),
                       Ago(dataset, "next_due"), DatasetWhy(dataset)});
    }
    Flush();
  }

  /// What files tell of a service that does not answer.
  void WriteFiles() {
    AddFiles();
    Flush();
  }

 private:
  std::int64_t Seconds(const Json::Value& object, const char* key) const {
    const Json::Value value = object.get(key, "");
    return value.isString() ? TVK::ParseRecordTime(value.asString(), clock_) : 0;
  }
  std::wstring Ago(const Json::Value& object, const char* key) const {
    return object.isMember(key) ? FromNow(Seconds(object, key) - now_) : std::wstring();
  }

  /// For how long: with "ago" the rows of what runs would not fit a terminal of 80 columns.
  std::wstring Since(const Json::Value& dataset) const {
    const std::wstring ago = Ago(dataset, "since");
    constexpr std::wstring_view kAgo = L" ago";
    return ago.ends_with(kAgo) ? ago.substr(0, ago.size() - kAgo.size()) : ago;
  }

  void AddFiles() {
    std::wstring policy = Text(status_, "policy");
    const std::wstring state = Text(status_, "policy_state");
    if (state == L"none") {
      // Of one that does not answer it is not known what it was started with.
      policy += status_.isMember("problem") ? L" (there is none)" : L" (not in force: there is no policy)";
    } else if (!state.empty() && state != L"file") {
      policy += L" (not in force: the " + state + L" is)";
    }
    rows_.push_back({L"policy", policy});
    if (status_.isMember("policy_problem")) rows_.push_back({L"", Text(status_, "policy_problem")});
    rows_.push_back({L"scope", Text(status_, "scope")});
    const Json::Value& store = status_["store"];
    if (store.isMember("problem")) {
      rows_.push_back({L"store", Text(store, "problem")});
      return;
    }
    rows_.push_back({L"store", std::to_wstring(store["bytes"].asUInt64() / 1024) + L" KiB"});
    for (const auto& [title, key] : {std::pair(L"oldest record", "oldest_record"), {L"last record", "last_record"}}) {
      if (store.isMember(key)) rows_.push_back({title, Time(store, key) + L" (" + Ago(store, key) + L")"});
    }
  }

  void AddRefused() {
    if (const std::uint64_t count = status_["store"]["refused"].asUInt64(); count > 0)
      rows_.push_back({L"records refused", std::to_wstring(count)});
    const Json::Value& refused = status_["channel_refused"];
    for (const std::string& kind : refused.getMemberNames()) {
      const std::uint64_t count = refused[kind].asUInt64();
      if (count > 0)
        rows_.push_back({L"callers refused", TVK::String::UTF8ToUTF16(kind) + L": " + std::to_wstring(count)});
    }
  }

  void Flush() {
    WriteColumns(rows_, out_, width_);
    rows_.clear();
  }

  const Json::Value& status_;
  const platform::Clock& clock_;
  std::ostream& out_;
  const std::size_t width_;
  const std::int64_t now_;
  std::vector<std::vector<std::wstring>> rows_;
};

// What the files tell, for both kinds of readers.
void WriteFiles(const StatusOptions& options, const platform::Clock& clock, const std::string& reason,
                std::ostream& out) {
  Json::Value files = ReadServiceFiles(options.policy_file, options.data_folder, clock);
  files["up"] = false;
  files["now"] = TVK::String::UTF16ToUTF8(TVK::System::GetTime(clock));
  files["problem"] = TVK::HarmlessText(reason);
  if (options.json) return WriteJsonLine(files, out);
  Screen(files, clock, out, options.width).WriteFiles();
}

}  // namespace

// What runs and what policy and scope say are not the same for a moment: something starts or ends.
std::wstring DatasetState(const Json::Value& dataset) {
  const auto is = [&](const char* key) { return dataset[key].isBool() && dataset[key].asBool(); };
  const bool runs = is("runs");
  if (runs != (Text(dataset, "why") == L"runs")) return runs ? L"ends" : L"starts";
  if (!runs) return L"-";
  return is("collects") ? L"runs" : L"collects nothing yet";
}

std::wstring DatasetWhy(const Json::Value& dataset) {
  const std::wstring error = Text(dataset, "last_error");
  std::wstring why = Text(dataset, "why");
  if (why == L"runs") return error.empty() ? Text(dataset, "detail") : L"last error: " + error;
  for (const std::wstring& more : {Text(dataset, "detail"), why == L"failed" ? error : std::wstring()}) {
    if (!more.empty()) why += L": " + more;
  }
  return why;
}

std::optional<Json::Value> AskStatus(const std::filesystem::path& place, platform::Runtime& runtime,
                                     std::string& problem, bool* refused) {
  const TVK::ChannelAnswer answer = TVK::ChannelClient(runtime, place).Ask({.wish = TVK::ChannelWish::kStatus});
  problem = TVK::HarmlessText(answer.reason);
  const bool answered = answer.delivery == TVK::ChannelAnswer::Delivery::kAnswered;
  if (refused != nullptr) *refused = answer.result != 0 && (answered || answer.denied);
  if (answer.result != 0) return std::nullopt;
  Json::Value status;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  if (reader->parse(answer.body.data(), answer.body.data() + answer.body.size(), &status, nullptr) &&
      status.isObject()) {
    return status;
  }
  problem = "the service answers something that is no status";
  return std::nullopt;
}

int RunStatus(const StatusOptions& options, platform::Runtime& runtime, std::ostream& out, std::ostream& errors) {
  std::string problem;
  const std::optional<Json::Value> status = AskStatus(options.place, runtime, problem);
  if (!status) {
    errors << "tvkctl: " << problem << '\n';
    WriteFiles(options, runtime.clock(), problem, out);
    return kExitFailed;
  }
  options.json ? WriteJsonLine(*status, out) : Screen(*status, runtime.clock(), out, options.width).Write();
  if (!status->get("up", false).asBool()) {
    errors << "tvkctl: the service is there, but it does not run\n";
    return kExitFailed;
  }
  return status->get("attention", Json::arrayValue).empty() ? kExitOk : kExitNeedsAttention;
}

}  // namespace tvkctl
