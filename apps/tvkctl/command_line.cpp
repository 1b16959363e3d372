#include "apps/tvkctl/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <functional>
#include <optional>
#include <ostream>
#include <utility>

#include "apps/empty_values.h"
#include "apps/exit_code.h"
#include "apps/manual_page.h"
#include "apps/program_help.h"
#include "apps/tvkctl/command_run.h"
#include "apps/tvkctl/completion.h"
#include "apps/tvkctl/offered_values.h"
#include "client/identity/tvk_info.h"
#include "client/text/string.h"
#include "component/component_datasets.h"

namespace tvkctl {
namespace {

constexpr char kDescription[] =
    "Shows the event records and the service's status, checks and applies telemetry policies, inspects the machine.";
constexpr HelpSection kSections[] = {
    {"Where to begin",
     "tvkctl report says what is known of this machine, and how to stop and delete it; tvkctl doctor why records are "
     "missing; tvkctl policy check FILE what a policy would do. tvkctl COMMAND --help tells the options of a command."},
    {"Exit codes",
     "0 done, 1 wrong command line, 2 wrong configuration or input (no store, a policy with mistakes, a file that is "
     "no "
     "SMBIOS table or no sector of a drive), 3 failure while running, 4 up, but something needs attention, 5 a dataset "
     "would start that does not run."},
};

// Decimal whatever its zeros in front say to other readers; nothing when it is no number from 0 to 2^64-1.
std::optional<std::uint64_t> ParseCount(std::string_view text) {
  std::uint64_t count = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return count;
}

/// Of a command.
struct Work {
  std::function<int(const Run&)> run;
  const char* doing = nullptr;  ///< What takes long where it does, "the drives are asked"; null: it says so itself.
};

std::vector<std::string> DatasetNames() {
  std::vector<std::string> names;
  for (const TVK::Dataset& dataset : TVK::ComponentDatasets().datasets())
    names.push_back(TVK::String::UTF16ToUTF8(dataset.row.name));
  return names;
}

void AddRecords(CLI::App& app, Texts& texts, Work& work) {
  CLI::App* const records = app.add_subcommand("records", "Show the records of the event store");
  TakeOneOf(records->add_option("--kind", texts.kind, "Only records of this kind: item, dataset or device"),
            {"item", "dataset", "device"})
      ->type_name("KIND");
  Offer(records->add_option("--dataset", texts.dataset, "Only records of this dataset, such as CPUEvent"),
        DatasetNames())
      ->type_name("NAME");
  records->add_option("--item", texts.item, "Only events of this item, such as ReadUsagePerInterval")
      ->type_name("NAME");
  records
      ->add_option("--since", texts.since,
                   "Only records from then on: 30m, 2h, 1w, yesterday, 22:00, \"2026-01-31 09:05\", "
                   "2026-01-31T09:05:00Z")
      ->type_name("TIME");
  records->add_option("--until", texts.until, "Only records up to then")->type_name("TIME");
  records
      ->add_option_function<std::string>(
          "--limit",
          [&texts](const std::string& text) {
            texts.limit = ParseCount(text);
            if (!texts.limit) throw CLI::ValidationError("--limit", '"' + text + "\" is no count; examples: 0, 20");
          },
          "Only the newest so many")
      ->type_name("COUNT");
  CLI::Option* const reverse = records->add_flag("--reverse", texts.reverse, "Newest first");
  records->add_flag("--follow", texts.follow, "Go on with the records that come, until Ctrl-C")
      ->excludes(reverse)
      ->excludes("--until");
  records->add_flag("--utc", texts.utc, "Times in UTC, not in the zone of this machine; json stays as it is stored");
  TakeOneOf(records->add_option("--format", texts.format, "table (the default), json (one object a line) or csv"),
            {"table", "json", "csv"})
      ->type_name("FORMAT");
  records->callback([&work] { work = {&Run::Records}; });
}

void AddErase(CLI::App& app, Texts& texts, Work& work) {
  CLI::App* const erase = app.add_subcommand("erase", "Delete for good what is kept of this machine");
  erase->add_flag("--all", texts.all, "Every record, the logs, stores that were set aside, copies of policies");
  Offer(
      erase->add_option("--dataset", texts.dataset, "The records of this dataset, its log, stores that were set aside"),
      DatasetNames())
      ->type_name("NAME");
  erase->add_option("--before", texts.before, "What is older: 90d, 2026-01-31; also with --dataset")->type_name("TIME");
  erase->add_flag("--stop", texts.stop, "Put the scope \"none\" in force first");
  erase->add_option("--policy", texts.target, "The policy file that --stop changes; the service's by default")
      ->type_name("FILE");
  erase->add_option("--log-dir", texts.log_folder, "Folder of the logs where no service runs; its own by default")
      ->type_name("DIR");
  erase->add_flag("--dry-run", texts.dry_run, "Only say what would be deleted");
  erase->add_flag("--yes", texts.yes, "Delete it; without this nothing is deleted");
  erase->callback([&] {
    const bool only_looks = texts.dry_run || !texts.yes;
    work = {&Run::Erase, only_looks ? "what would be deleted is counted" : "the erasure is under way"};
  });
}

void AddServicePolicy(CLI::App& command, Texts& texts, const std::string& what) {
  command
      .add_option("--policy", texts.target,
                  what + "; by default /etc/tvk/policy.json, on Windows %ProgramData%\\TVK\\policy.json")
      ->type_name("TARGET");
}

void AddReport(CLI::App& app, Texts& texts, Work& work) {
  CLI::App* const report =
      app.add_subcommand("report", "Say in few lines, or on a page, what is known of this machine");
  report->add_option("--since", texts.since, "Of records from then on: 1w, yesterday, 2026-01-31")->type_name("TIME");
  report->add_option("--html", texts.html_file, "Write all of it as a page for a browser; - is standard output")
      ->type_name("FILE");
  AddServicePolicy(*report, texts, "The service's policy file, for what it tells where the service does not answer");
  report->callback([&work] { work = {&Run::Report}; });
}

void AddStatus(CLI::App& app, Texts& texts, Work& work) {
  CLI::App* const status = app.add_subcommand("status", "Say how the running service stands");
  AddServicePolicy(*status, texts, "The service's policy file, for what it tells where the service does not answer");
  status->add_flag("--json", texts.json, "One JSON object");
  status->callback([&work] { work = {&Run::Status, "the service is asked"}; });
}

void AddDoctor(CLI::App& app, Texts& texts, Work& work) {
  CLI::App* const doctor =
      app.add_subcommand("doctor", "Say what is wrong first, from the service to the record, and what mends it");
  Offer(doctor->add_option("--dataset", texts.dataset, "The dataset whose records are missed; else all that run"),
        DatasetNames())
      ->type_name("NAME");
  AddServicePolicy(*doctor, texts, "The service's policy file, for a service that does not answer");
  doctor->add_flag("--json", texts.json, "One JSON object");
  doctor->callback([&work] { work = {&Run::Doctor, "it is looked for what is wrong"}; });
}

void AddEvent(CLI::App& app, Texts& texts, Work& work) {
  CLI::App* const event =
      app.add_subcommand("event", "Hand a fact of your own to the service, which makes a record of it");
  Offer(event->add_option("--dataset", texts.event_dataset, "TVKEvent, which takes such facts"), {"TVKEvent"})
      ->type_name("NAME")
      ->required();
  event->add_option("--item", texts.event_item, "What happened, a name such as DockUsed")
      ->type_name("NAME")
      ->required();
  event->add_option("DATA", texts.event_data, "What there is to say of it: texts, each under its key")
      ->type_name("KEY=VALUE ...");
  event->callback([&work] { work = {&Run::Event, "the service is asked"}; });
}

void AddPolicy(CLI::App& app, Texts& texts, Work& work) {
  CLI::App* const policy = app.add_subcommand("policy", "Check and apply telemetry policies");
  policy->require_subcommand(0, 1);
  const auto add_file = [&texts](CLI::App* command, const char* what) {
    return command->add_option("FILE", texts.policy_file, what)->type_name("");
  };
  CLI::App* const check = policy->add_subcommand("check", "Say what a policy means on this machine, and its mistakes");
  add_file(check, "The policy, a JSON document; - reads standard input; without it the policy in force");
  CLI::Option* const facts = check
                                 ->add_option("--facts", texts.facts_files,
                                              "For the machine of this file, as inspect facts --json writes it; "
                                              "may be given again for others")
                                 ->allow_extra_args(false)  // what follows is the policy
                                 ->type_name("FILE");
  check->add_option("--sysroot", texts.sysroot, "For the recorded machine below this folder (Linux)")
      ->type_name("DIR")
      ->excludes(facts);
  check
      ->add_option(
          "--against", texts.against_file,
          "Say what would start, stop and change where this policy is in force; exit code 5 when a dataset starts")
      ->type_name("FILE");
  Offer(
      check->add_option("--scope", texts.scope, "Check for this scope, not the policy's: none, basic, enhance or full"),
      {"none", "basic", "enhance", "full"})
      ->type_name("SCOPE");
  check->add_flag("--json", texts.json, "One JSON object");
  check->callback([&work] { work = {&Run::PolicyCheck, "the policy is checked"}; });
  policy->add_subcommand("schema", "Print the JSON Schema of policies")->callback([&work] {
    work = {&Run::PolicySchema};
  });
  CLI::App* const apply = policy->add_subcommand("apply", "Check a policy and put it in force");
  add_file(apply, "The policy, a JSON document")->required();
  AddServicePolicy(*apply, texts, "The service's policy file, which is replaced");
  apply->callback([&work] { work = {&Run::PolicyApply, "the policy is put in force"}; });
}

void AddInspect(CLI::App& app, Texts& texts, Work& work) {
  static constexpr char kAsking[] = "the machine is asked";
  CLI::App* const inspect = app.add_subcommand("inspect", "Show what the collectors read from the machine");
  inspect->require_subcommand(0, 1);
  const auto add = [&](const char* name, const char* help, const Work& inspection) {
    CLI::App* const command = inspect->add_subcommand(name, help);
    command->add_option("--sysroot", texts.sysroot, "Read a recorded machine's files below this folder (Linux)")
        ->type_name("DIR");
    command->add_flag("--json", texts.json, "One JSON object");
    command->callback([&work, inspection] { work = inspection; });
    return command;
  };
  const auto add_smbios = [&texts](CLI::App* command) {
    command
        ->add_option("--smbios", texts.smbios_file,
                     "Decode this SMBIOS table: a file of dmidecode --dump-bin, or a raw RSMB table")
        ->type_name("FILE")
        ->excludes("--sysroot");
  };
  const auto by = [](Run::Inspection inspection) {
    return Work{[inspection](const Run& run) { return run.Inspect(inspection); }, kAsking};
  };
  add("facts", "What the filters of policies look at; no ids", {&Run::InspectFacts, kAsking});
  add("cpu", "The processors' facts; cache sizes in bytes", by(RunInspectCpu));
  add_smbios(add("memory", "The memory modules and the machine's totals", by(RunInspectMemory)));
  add_smbios(add("firmware", "BIOS, system and baseboard; serial numbers hashed", by(RunInspectFirmware)));
  add("drives", "The drives, as the system knows them; serial numbers hashed", {&Run::InspectDrives, kAsking})
      ->add_option("--record", texts.record_folder,
                   "Ask the drives, too, and write what they answer below this folder, serial numbers blanked")
      ->type_name("DIR");
  add("battery", "The batteries, as the records have them; serial numbers hashed", {&Run::InspectBattery, kAsking});
  add("power", "What the machine runs on, and what its batteries hold together", {&Run::InspectPower, kAsking});
  AddSmartOptions(
      *add("smart", "The health of the drives, or of one whose answers are in files", {&Run::InspectSmart, kAsking}),
      texts.smart);
}

void AddEventLog(CLI::App& app, Texts& texts, Work& work) {
  CLI::App* const event_log = app.add_subcommand("eventlog", "Queries of the Windows event log");
  event_log->require_subcommand(0, 1);
  CLI::App* const query = event_log->add_subcommand("query", "Print the structured query of a log dataset's settings");
  AddEventLogOptions(*query, texts.event_log);
  query->callback([&work] { work = {&Run::EventLogQuery}; });
}

void AddCompletion(CLI::App& app, Texts& texts, Work& work) {
  CLI::App* const completion = app.add_subcommand("completion", "Print the script by which a shell completes commands");
  TakeOneOf(completion->add_option("SHELL", texts.shell, "bash, zsh or powershell"), {"bash", "zsh", "powershell"})
      ->required()
      ->type_name("");
  completion->callback([&] { work = {[&](const Run& run) { return run.Print(CompletionScript(app, texts.shell)); }}; });
}

std::string Version() {
  return TVK::String::UTF16ToUTF8(TvkInfo({}).GetVersion());
}

/// The parser's description, and what a parse leaves.
class CommandLine {
 public:
  CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  CLI::App app{kDescription, "tvkctl"};
  Texts texts;
  Work work;  ///< Of the command that was given; of none it has no `run`.
};

CommandLine::CommandLine() {
  SetUpHelp(app, kSections);
  app.fallthrough();  // --data-dir may stand behind the command, too
  app.require_subcommand(0, 1);
  app.set_version_flag("--version", "tvkctl " + Version());
  app.add_option("--data-dir", texts.data_folder,
                 "Folder of the event store, which records and erase work on, and of the service, which status asks; "
                 "by default "
                 "/var/lib/tvk, on Windows "
                 "%ProgramData%\\TVK\\data")
      ->type_name("DIR");
  AddRecords(app, texts, work);
  AddReport(app, texts, work);
  AddErase(app, texts, work);
  AddStatus(app, texts, work);
  AddDoctor(app, texts, work);
  AddEvent(app, texts, work);
  AddPolicy(app, texts, work);
  AddInspect(app, texts, work);
  AddEventLog(app, texts, work);
  AddCompletion(app, texts, work);
  RefuseEmptyValues(app);
  ExplainFailures(app);
}

}  // namespace

std::string TvkctlManualPage(const std::string& date) {
  return ManualPage(
      CommandLine().app,
      {.section = 1, .date = date, .version = Version(), .see_also = "TVKClientService(8)", .sections = kSections});
}

int RunTvkctl(std::vector<std::string> arguments, std::ostream& out, std::ostream& errors) {
  CommandLine line;
  std::ranges::reverse(arguments);  // as CLI11 takes them
  try {
    line.app.parse(std::move(arguments));
  } catch (const CLI::ParseError& failure) {
    return line.app.exit(failure, out, errors) == 0 ? kExitOk : kExitWrongCommandLine;
  }
  if (!line.work.run) {
    errors << CommandIsMissing(line.app);
    return kExitWrongCommandLine;
  }
  const Run run(line.texts, out, errors);
  const int exit_code = run.Patiently(line.work.doing, line.work.run);
  return out.flush() || exit_code != kExitOk ? exit_code : kExitFailed;
}

}  // namespace tvkctl
