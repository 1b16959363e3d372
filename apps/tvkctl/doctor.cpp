#include "apps/tvkctl/doctor.h"

#include <algorithm>
#include <array>
#include <ostream>
#include <sstream>
#include <utility>

#include "apps/exit_code.h"
#include "apps/tvkctl/output.h"
#include "apps/tvkctl/time_text.h"
#include "client/text/record_time.h"
#include "client/text/string.h"
#include "platform/files.h"

namespace tvkctl {
namespace {

using TVK::String;

constexpr std::string_view kServiceStep = "service";
constexpr char kDeviceContext[] = "DeviceContext";
constexpr std::uint64_t kLeastFreeBytes = 64ull << 20;
/// A report may be made this much later than it is due: whoever makes it waits for a drive, or for the processor.
constexpr std::int64_t kLateSeconds = 120;

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);)
    lines.push_back(line);
  if (lines.empty()) lines.emplace_back();
  return lines;
}

// One run along the chain.
class Examiner {
 public:
  Examiner(const Symptoms& symptoms, const TVK::Dataset* dataset, const platform::Clock& clock)
      : symptoms_(symptoms), dataset_(dataset), clock_(clock) {}

  std::vector<Examination> Run() {
    using Step = Examination (Examiner::*)() const;
    constexpr std::array<Step, 8> kChain = {&Examiner::Service, &Examiner::Policy, &Examiner::ScopeAndFilters,
                                            &Examiner::Rights,  &Examiner::Source, &Examiner::ClockAndSleep,
                                            &Examiner::Store,   &Examiner::Disk};
    std::vector<Examination> found;
    for (const Step step : kChain) {
      found.push_back((this->*step)());
      if (found.back().finding == Finding::kWrong) break;
      if (found.size() == 1) AskSources();
    }
    return found;
  }

 private:
  const Json::Value& status() const { return *symptoms_.status; }
  std::string Text(const char* key) const { return status().get(key, "").asString(); }
  std::string PolicyFile() const {
    const std::string told = symptoms_.status ? Text("policy") : std::string();
    return told.empty() ? platform::PathToUtf8(symptoms_.policy_file) : told;
  }
  // A program that hosts the component may give it a policy of its own, which stands in no file.
  bool HasFile() const { return !symptoms_.status || status().isMember("policy"); }
  std::string CheckCommand() const { return HasFile() ? "tvkctl policy check " + PolicyFile() : "tvkctl policy check"; }
  std::string ChangeCommand() const {
    return (HasFile() ? "edit " + PolicyFile() : "change the policy of the program that hosts the service") + "; " +
           CheckCommand();
  }

  // Of the dataset that is looked at, or of all that are to run and collect.
  std::vector<const Json::Value*> Datasets() const {
    std::vector<const Json::Value*> chosen;
    for (const Json::Value& each : status()["datasets"]) {
      // The device context is the service's own: it says nothing of whether anything is collected.
      const bool collects = each["why"] == "runs" && each["collects"].asBool() && each["name"] != kDeviceContext;
      const bool wanted = dataset_ == nullptr ? collects : each["name"] == String::UTF16ToUTF8(dataset_->row.name);
      if (wanted) chosen.push_back(&each);
    }
    return chosen;
  }

  void AskSources() {
    for (const Json::Value* each : Datasets()) {
      const std::wstring name = String::UTF8ToUTF16((*each)["name"].asString());
      sources_.emplace_back(String::UTF16ToUTF8(name), symptoms_.try_source(name));
    }
  }

  Examination Service() const {
    if (!symptoms_.status && symptoms_.refused) {
      return {"this account", Finding::kWrong,
              "the service is there, and tells this account nothing: " + symptoms_.no_answer,
              "run it as root or an administrator"};
    }
    if (!symptoms_.status) {
      return {kServiceStep, Finding::kWrong, symptoms_.no_answer,
              "as root or an administrator: " + symptoms_.start_command};
    }
    if (!status()["up"].asBool()) {
      return {kServiceStep, Finding::kWrong, "it is there, but it does not run", symptoms_.start_command};
    }
    return {kServiceStep, Finding::kFine, "up since " + Text("up_since"), {}};
  }

  Examination Policy() const {
    constexpr std::string_view kStep = "policy";
    const std::string state = Text("policy_state");
    if (state == "none" && Text("policy_problem").empty()) {
      return {kStep, Finding::kWrong, "there is no policy in " + PolicyFile(), "tvkctl policy apply FILE"};
    }
    if (!state.empty() && state != "file") {
      return {kStep, Finding::kWrong, PolicyFile() + " is not in force: " + Text("policy_problem"), CheckCommand()};
    }
    return {kStep, Finding::kFine, (HasFile() ? PolicyFile() : "that of the hosting program") + " is in force", {}};
  }

  Examination ScopeAndFilters() const {
    constexpr std::string_view kStep = "scope and filters";
    const std::vector<const Json::Value*> datasets = Datasets();
    const std::string scope = "scope \"" + Text("scope") + '"';
    if (dataset_ == nullptr) {
      const auto& all = status()["datasets"];
      const auto failed = std::find_if(all.begin(), all.end(), [](const auto& each) {
        return each["why"] == "failed" || each["why"] == "not started";
      });
      if (failed != all.end()) return Failed(kStep, *failed);
      if (!datasets.empty()) {
        const auto runs = std::count_if(all.begin(), all.end(), [](const auto& each) { return each["why"] == "runs"; });
        return {kStep, Finding::kFine, scope + ": " + std::to_string(runs) + " datasets run", {}};
      }
      return {kStep, Finding::kWrong, scope + ": nothing that collects is to run", CheckCommand()};
    }
    if (datasets.empty()) {
      return {kStep, Finding::kWrong, "the running service does not know this dataset",
              "restart the service: it is of another version"};
    }
    const Json::Value& asked = *datasets.front();
    const std::string why = asked["why"].asString();
    if (why == "failed" || why == "not started") return Failed(kStep, asked);
    if (!asked["collects"].asBool()) {
      return {kStep, Finding::kWrong, "this version collects nothing for it",
              "nothing does: what of it is listed has no effect"};
    }
    if (why == "no user agent")
      return {kStep, Finding::kWrong, why + ": nobody is logged on, it has ended, or this system has none",
              "log on; outside of Windows nothing observes it"};
    if (why == "runs") return {kStep, Finding::kFine, scope + ", it is to run", {}};
    const std::string detail = asked.get("detail", "").asString();
    return {kStep, Finding::kWrong, why + (detail.empty() ? "" : ": " + detail), ChangeCommand()};
  }

  static Examination Failed(std::string_view step, const Json::Value& dataset) {
    return {step, Finding::kWrong,
            "the monitor of " + dataset["name"].asString() +
                (dataset["why"] == "failed" ? " ended with an error" : " could not be started"),
            "EventManager.log says which; restart the service"};
  }

  Examination Rights() const {
    constexpr std::string_view kStep = "rights";  // of this account, which may be another than the service's
    for (const auto& [name, report] : sources_) {
      if (report.state != SourceState::kNoRight) continue;
      return {kStep, Finding::kWrong, name + ": this account may not ask: " + report.text,
              "as root or an administrator: tvkctl doctor --dataset " + name +
                  "; the page on rights says what the service itself needs"};
    }
    return {kStep, Finding::kFine, "this account may ask for the facts", {}};
  }

  Examination Source() const {
    constexpr std::string_view kStep = "source of the facts";
    std::string told;
    for (const auto& [name, report] : sources_) {
      // Of all datasets some have nothing to observe on any machine.
      const bool missed =
          report.state == SourceState::kFails || (report.state == SourceState::kNothing && dataset_ != nullptr);
      const std::string text = dataset_ == nullptr ? name + ": " + report.text : report.text;
      if (missed) return {kStep, Finding::kWrong, text, Mend(name, report)};
      if (!told.empty()) told += '\n';
      told += text;
    }
    const bool unknown = sources_.size() == 1 && sources_.front().second.state == SourceState::kUnknown;
    return {kStep, unknown ? Finding::kUnknown : Finding::kFine, told, {}};
  }

  std::string Mend(const std::string& name, const SourceReport& report) const {
    if (report.state == SourceState::kNothing) return "nothing does: there is nothing to record on this machine";
    for (const Json::Value& each : status()["datasets"]) {
      if (each["name"] == name && each.isMember("last_error"))
        return "its log may say more; its last error: " + each["last_error"].asString();
    }
    return "the system's own log may say more";
  }

  std::int64_t SecondsFromNow(const Json::Value& object, const char* key) const {
    const auto seconds = [&](const std::string& text) { return TVK::ParseRecordTime(text, clock_); };
    return seconds(object[key].asString()) - seconds(Text("now"));
  }

  Examination ClockAndSleep() const {
    constexpr std::string_view kStep = "clock and sleep";
    std::string next;
    for (const Json::Value* each : Datasets()) {
      const std::string name = (*each)["name"].asString();
      if (each->isMember("last_record") && SecondsFromNow(*each, "last_record") > kLateSeconds) {
        return {kStep, Finding::kWrong,
                name + ": its last record is of a time that is yet to come, " + (*each)["last_record"].asString(),
                "set the clock; reports go on when that time has come"};
      }
      if (!each->isMember("next_due")) continue;
      const std::int64_t due = SecondsFromNow(*each, "next_due");
      if (due < -kLateSeconds) {
        return {kStep, Finding::kWrong, name + ": its report was due " + String::UTF16ToUTF8(FromNow(due)),
                "its log says what it waits for; restart the service"};
      }
      if (dataset_ != nullptr) next = ", the next report is due " + String::UTF16ToUTF8(FromNow(due));
    }
    return {kStep, Finding::kFine, "it is " + Text("now") + next, {}};
  }

  Examination Store() const {
    constexpr std::string_view kStep = "store";
    const Json::Value& store = status()["store"];
    const std::string folder = platform::PathToUtf8(symptoms_.data_folder);
    if (store.isMember("problem")) {
      return {kStep, Finding::kWrong, store["problem"].asString(), "restart the service; a damaged store is set aside"};
    }
    const std::uint64_t refused = store["refused"].asUInt64();
    if (store.get("failing", refused > 0).asBool()) {
      return {kStep, Finding::kWrong, std::to_string(refused) + " records could not be written since the start",
              "EventDataLogging.log says why; make room in " + folder};
    }
    if (dataset_ == nullptr) return {kStep, Finding::kFine, store["bytes"].asString() + " bytes", {}};
    const Json::Value& asked = *Datasets().front();
    if (!asked.isMember("last_record")) return WithoutRecord(kStep, asked);
    std::string text = "last record " + String::UTF16ToUTF8(FromNow(SecondsFromNow(asked, "last_record")));
    if (asked.isMember("last_error")) text += "; its last error: " + asked["last_error"].asString();
    return {kStep, Finding::kFine, std::move(text), {}};
  }

  Examination WithoutRecord(std::string_view step, const Json::Value& asked) const {
    const std::string none = "no record of it yet";
    if (asked.isMember("last_error")) {
      return {step, Finding::kWrong, none + "; its last error: " + asked["last_error"].asString(),
              "its log says more; " + CheckCommand() + " tells its settings"};
    }
    if (asked.isMember("next_due")) return {step, Finding::kFine, none, {}};
    return {step, Finding::kUnknown, none + ", and no report is due: its settings switch it off, or nothing happened",
            CheckCommand() + " tells its settings"};
  }

  Examination Disk() const {
    constexpr std::string_view kStep = "disk";
    if (!symptoms_.free_bytes) return {kStep, Finding::kUnknown, "its free space is not told", {}};
    const std::string free = std::to_string(*symptoms_.free_bytes >> 20) + " MiB are free";
    if (*symptoms_.free_bytes >= kLeastFreeBytes) return {kStep, Finding::kFine, free, {}};
    return {kStep, Finding::kWrong, free, "make room on the disk of " + platform::PathToUtf8(symptoms_.data_folder)};
  }

  const Symptoms& symptoms_;
  const TVK::Dataset* const dataset_;
  const platform::Clock& clock_;
  std::vector<std::pair<std::string, SourceReport>> sources_;  ///< By the name of the dataset.
};

const char* FindingName(Finding finding) {
  switch (finding) {
    case Finding::kFine:
      return "ok";
    case Finding::kWrong:
      return "wrong";
    case Finding::kUnknown:
      return "unknown";
  }
  return "";
}

}  // namespace

std::vector<Examination> Examine(const Symptoms& symptoms, const TVK::Dataset* dataset, const platform::Clock& clock) {
  return Examiner(symptoms, dataset, clock).Run();
}

int WriteDiagnosis(const std::vector<Examination>& chain, bool json, std::ostream& out, std::size_t width) {
  const Examination& last = chain.back();
  const bool wrong = last.finding == Finding::kWrong;
  // Of what is wrong, which is the last; else of what could not be told.
  const auto open = std::ranges::find_if(chain, [](const Examination& each) { return !each.mend.empty(); });
  const std::string mend = wrong ? last.mend : open == chain.end() ? std::string() : open->mend;
  if (json) {
    Json::Value value;
    for (const Examination& each : chain) {
      Json::Value& entry = value["chain"].append(Json::objectValue);
      entry["step"] = std::string(each.step);
      entry["finding"] = FindingName(each.finding);
      for (const std::string& line : LinesOf(each.text)) {
        const std::string text = TVK::HarmlessText(line);
        entry["text"] = entry.isMember("text") ? entry["text"].asString() + "; " + text : text;
      }
    }
    if (wrong) value["wrong"] = std::string(last.step);
    if (!mend.empty()) value["mend"] = TVK::HarmlessText(mend);
    WriteJsonLine(value, out);
  } else {
    std::vector<std::vector<std::wstring>> rows;
    for (const Examination& each : chain) {
      std::wstring step = String::UTF8ToUTF16(each.step);
      std::wstring finding = String::UTF8ToUTF16(FindingName(each.finding));
      for (const std::string& line : LinesOf(each.text))
        rows.push_back({std::exchange(step, {}), std::exchange(finding, {}), String::UTF8ToUTF16(line)});
    }
    WriteColumns(rows, out, width);
    const char* const end = wrong ? "mend it: " : mend.empty() ? "nothing is wrong" : "nothing is known to be wrong; ";
    out << '\n' << end << TVK::HarmlessText(mend) << '\n';
  }
  if (!wrong) return kExitOk;
  return last.step == kServiceStep ? kExitFailed : kExitNeedsAttention;
}

}  // namespace tvkctl
