#include "component/process_composition.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

#include "client/records/record_json.h"
#include "client/store/record_reader.h"
#include "platform/files.h"
#include "platform/local_channel.h"

using TVK::ComponentOutcome;

namespace {

// Adds a remark; the first outcome that is not ready stays.
void Report(TVK::ComponentResult& result, ComponentOutcome outcome, const std::string& message) {
  if (result.outcome == ComponentOutcome::kReady) result.outcome = outcome;
  if (!result.message.empty()) result.message += '\n';
  result.message += message;
}

// A policy that is used without a remark needs none.
void ReportPolicy(TVK::ComponentResult& result, const std::filesystem::path& file, const TVK::PolicyLoad& load,
                  std::string_view gone) {
  if (load.state == TVK::PolicyFileState::kGood && load.problems.empty()) return;
  for (const TVK::PolicyRemark& remark : TVK::PolicyRemarks(file, load, gone))
    Report(result, ComponentOutcome::kReady, remark.line);
}

void ReportStore(TVK::ComponentResult& result, const std::filesystem::path& folder,
                 const TVK::EventDataLogging& store) {
  // In a folder that cannot be used it cannot be opened either, and the log of its reasons may be missing.
  if (store.opening_problem().empty() || result.outcome != ComponentOutcome::kReady) return;
  const std::string place = "the event store in " + platform::PathToUtf8(folder);
  if (store.is_open()) return Report(result, ComponentOutcome::kReady, place + ": " + store.opening_problem());
  const std::filesystem::path file = folder / TVK::kStoreFileName;
  TVK::StoreAccess access = TVK::StoreAccess::kFailed;
  std::string problem;
  TVK::RecordReader::Open(file, problem, &access);
  if (access == TVK::StoreAccess::kForeign) {
    return Report(result, ComponentOutcome::kWrongConfiguration,
                  platform::PathToUtf8(file) + " is not this client's, and is left as it is: " +
                      store.opening_problem() + "; move it away, or name another data folder");
  }
  if (access == TVK::StoreAccess::kNewer) {
    return Report(result, ComponentOutcome::kWrongConfiguration,
                  platform::PathToUtf8(file) + " is of a newer version of this client, and is left as it is: " +
                      store.opening_problem() + "; install that version, or name another data folder");
  }
  Report(result, ComponentOutcome::kFailed, place + " cannot be opened: " + store.opening_problem());
}

// Whether the component makes files of that name in its folders.
bool IsOurs(const std::string& name) {
  constexpr std::string_view kFolders[] = {"log", "run"};
  return std::ranges::find(kFolders, name) != std::end(kFolders) || name.ends_with(".log") ||
         name.starts_with("records.") || name.find("policy.last-good.json") != name.npos ||
         name.find("erasure.json") != name.npos;
}

// Every record is readable that the store has just written.
template <typename Record>
void Tell(const TVK::RecordObserver& observer, std::optional<Record> record, const std::string& json) {
  if (record) observer({std::move(*record), json});
}

void Tell(const TVK::RecordObserver& observer, TVK::RecordKind kind, const std::string& json) {
  switch (kind) {
    case TVK::RecordKind::kItem:
      return Tell(observer, TVK::ItemEventFromJson(json), json);
    case TVK::RecordKind::kDataset:
      return Tell(observer, TVK::DatasetContextFromJson(json), json);
    case TVK::RecordKind::kDevice:
      return Tell(observer, TVK::DeviceContextFromJson(json), json);
  }
}

std::filesystem::path OrDefault(const std::filesystem::path& given, const std::filesystem::path& standard) {
  return given.empty() ? standard : std::filesystem::absolute(given);
}

}  // namespace

namespace TVK {

std::unique_ptr<ProcessComposition> ProcessComposition::Open(const ComponentOptions& options, RecordObserver observer,
                                                             RemarkObserver remarks, ComponentResult& result) {
  const platform::DefaultPlaces defaults = platform::GetDefaultPlaces();
  Composition::Places places;
  places.policy_file = OrDefault(options.policy_file, defaults.policy_file);
  places.data_folder = OrDefault(options.data_folder, defaults.data_folder);
  // A host that has its own data folder is another installation: it keeps its logs and its events to itself.
  const bool own = !options.data_folder.empty();
  places.channel = platform::ChannelPlace(own ? places.data_folder : std::filesystem::path());
  const std::filesystem::path log_folder =
      OrDefault(options.log_folder, own ? places.data_folder / "log" : defaults.log_folder);
  places.log_folder = log_folder;
  const std::filesystem::path sysroot = OrDefault(options.sysroot, "/");
  if (std::error_code failure; !options.sysroot.empty() && !std::filesystem::is_directory(sysroot, failure)) {
    // A machine of which nothing can be read would be described all the same.
    Report(result, ComponentOutcome::kWrongConfiguration,
           platform::PathToUtf8(sysroot) + ": there is no such folder to read the machine from");
    return nullptr;
  }
  for (const std::filesystem::path& folder : {places.data_folder, log_folder}) {
    if (const std::string problem = platform::MakePrivateFolder(folder); !problem.empty()) {
      Report(result, ComponentOutcome::kWrongConfiguration, problem);
      continue;
    }
    const std::string open = platform::CloseFolder(folder, IsOurs);
    if (!open.empty()) Report(result, ComponentOutcome::kReady, open);
  }
  if (const auto foreign = platform::FindForeignFile(places.data_folder, IsOurs); !foreign.empty()) {
    Report(result, ComponentOutcome::kWrongConfiguration,
           platform::PathToUtf8(foreign) +
               " was made by another account, which could read or change what lies in it; "
               "remove it, or make it the service's account's own");
    return nullptr;
  }
  const std::string writers = platform::WarnOfWriters(places.policy_file.parent_path());
  if (!writers.empty()) Report(result, ComponentOutcome::kReady, writers);
  const auto logs = std::make_shared<LastErrors>(MakeFileLogBackend(log_folder));
  SetLogBackend(logs);
  std::unique_ptr<ProcessComposition> process(new ProcessComposition(
      places, own ? places.data_folder / "run" : defaults.named_event_folder, sysroot, logs, std::move(remarks)));
  Composition& composition = process->composition_;
  ReportStore(result, places.data_folder, composition.store());
  const Composition::Opening opening = composition.Start();
  ReportPolicy(result, places.policy_file, opening.policy, TVK::kTelemetryPolicyGone);
  // Most machines have no client policy.
  if (opening.tvk_policy.state != PolicyFileState::kGone) {
    ReportPolicy(result, places.tvk_policy_file(), opening.tvk_policy, TVK::kTvkPolicyGone);
  }
  if (!opening.policy_in_force) {
    Report(result, ComponentOutcome::kWrongConfiguration, "there is no telemetry policy to run with");
  }
  if (!opening.watch_problem.empty()) Report(result, ComponentOutcome::kReady, opening.watch_problem);
  if (observer) {
    composition.store().SetRecordListener(
        [observer = std::move(observer)](RecordKind kind, const std::string& json) { Tell(observer, kind, json); });
  }
  return process;
}

}  // namespace TVK
