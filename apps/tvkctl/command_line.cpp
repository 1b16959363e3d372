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
#include "apps/tvkctl/eventlog_query.h"
#include "apps/tvkctl/inspect_battery.h"
#include "apps/tvkctl/inspect_commands.h"
#include "apps/tvkctl/inspect_drives.h"
#include "apps/tvkctl/inspect_smart.h"
#include "apps/tvkctl/policy_commands.h"
#include "apps/tvkctl/records_command.h"
#include "apps/tvkctl/status_command.h"
#include "client/identity/tvk_info.h"
#include "client/machine/machine_services.h"
#include "client/text/string.h"
#include "component/component_datasets.h"
#include "platform/files.h"
#include "platform/local.h"
#include "platform/local_channel.h"
#include "platform/process_host.h"

namespace tvkctl {
namespace {

constexpr char kDescription[] =
    "Shows the event records and the service's status, checks and applies telemetry policies, inspects the machine.";
constexpr char kFooter[] =
    "Exit codes: 0 done, 1 wrong command line, 2 wrong configuration or input (no store, a policy with mistakes, a "
    "file\n"
    "that is no SMBIOS table or no sector of a drive), 3 failure while running.\n"
    "tvkctl COMMAND --help tells the options of a command.";

/// Options as they stand on the command line, in UTF-8.
struct Texts {
  std::string data_folder;
  std::string kind, dataset, since, format = "table";
  std::optional<std::uint64_t> limit;
  bool follow = false;
  std::string policy_file, scope, target;
  std::string smbios_file, sysroot, record_folder;
  EventLogOptions event_log;
  std::string ata_values, ata_thresholds, ata_identify, nvme_health, smart_table;
  bool json = false;
};

/// What one run works with. The machine is opened by the commands that ask it.
class Run {
 public:
  Run(const Texts& texts, std::ostream& out, std::ostream& errors)
      : texts_(texts), out_(out), errors_(errors), runtime_(platform::MakeRealRuntime({})) {}

  int Records() const {
    RecordsOptions options;
    options.data_dir = texts_.data_folder.empty() ? platform::GetDefaultPlaces().data_folder
                                                  : platform::PathFromUtf8(texts_.data_folder);
    if (texts_.kind == "item") options.kind = TVK::RecordKind::kItem;
    if (texts_.kind == "dataset") options.kind = TVK::RecordKind::kDataset;
    if (texts_.kind == "device") options.kind = TVK::RecordKind::kDevice;
    if (texts_.format == "json") options.format = RecordFormat::kJson;
    if (texts_.format == "csv") options.format = RecordFormat::kCsv;
    options.dataset = texts_.dataset;
    options.since = texts_.since;
    options.limit = texts_.limit;
    options.follow = texts_.follow;
    if (!options.follow) return RunRecords(options, *runtime_, out_, errors_, nullptr);
    const auto stop = runtime_->MakeEvent(platform::EventReset::kManual);
    const auto interrupts = platform::InterruptWatcher::Start({.stop = [&] { stop->Set(); }, .reload = {}});
    return RunRecords(options, *runtime_, out_, errors_, stop.get());
  }

  int Status() const { return RunStatus({ChannelPlace(), texts_.json}, *runtime_, out_, errors_); }

  int PolicyCheck() const {
    const auto machine = OpenMachine();
    if (machine == nullptr) return kExitWrongConfiguration;
    PolicyCheckOptions options;
    options.file = platform::PathFromUtf8(texts_.policy_file);
    if (!texts_.scope.empty()) options.scope = TVK::String::UTF8ToUTF16(texts_.scope);
    options.json = texts_.json;
    options.device = TVK::MachineServices(*machine, *runtime_).machine_information.traits();
    return RunPolicyCheck(options, TVK::MakeComponentDatasets(), out_, errors_);
  }

  int PolicySchema() const { return RunPolicySchema(out_); }

  int PolicyApply() const {
    const auto machine = OpenMachine();
    if (machine == nullptr) return kExitWrongConfiguration;
    PolicyApplyOptions options;
    options.file = platform::PathFromUtf8(texts_.policy_file);
    options.target =
        texts_.target.empty() ? platform::GetDefaultPlaces().policy_file : platform::PathFromUtf8(texts_.target);
    options.device = TVK::MachineServices(*machine, *runtime_).machine_information.traits();
    return RunPolicyApply(options, TVK::MakeComponentDatasets(), out_, errors_);
  }

  using Inspection = int (*)(const InspectOptions&, platform::Machine&, std::ostream&, std::ostream&);
  int Inspect(Inspection inspection) const {
    const auto machine = OpenMachine();
    if (machine == nullptr) return kExitWrongConfiguration;
    return inspection({platform::PathFromUtf8(texts_.smbios_file), texts_.json, MachineName()}, *machine, out_,
                      errors_);
  }

  int InspectDrives() const {
    const auto machine = OpenMachine();
    if (machine == nullptr) return kExitWrongConfiguration;
    return RunInspectDrives({platform::PathFromUtf8(texts_.record_folder), texts_.json, MachineName()}, *machine, out_,
                            errors_);
  }

  int InspectBattery() const {
    const auto machine = OpenMachine();
    if (machine == nullptr) return kExitWrongConfiguration;
    TVK::MachineServices services(*machine, *runtime_);
    return RunInspectBattery(texts_.json, services.batteries, out_, errors_);
  }

  int InspectPower() const {
    const auto machine = OpenMachine();
    if (machine == nullptr) return kExitWrongConfiguration;
    TVK::MachineServices services(*machine, *runtime_);
    return RunInspectPower(texts_.json, machine->power(), services.batteries, out_, errors_);
  }

  int EventLogQuery() const { return RunEventLogQuery(texts_.event_log, out_, errors_); }

  int InspectSmart() const {
    SmartOptions options{.ata_values = platform::PathFromUtf8(texts_.ata_values),
                         .ata_thresholds = platform::PathFromUtf8(texts_.ata_thresholds),
                         .ata_identify = platform::PathFromUtf8(texts_.ata_identify),
                         .nvme_health = platform::PathFromUtf8(texts_.nvme_health),
                         .json = texts_.json,
                         .machine_name = MachineName()};
    if (texts_.smart_table == "sata") options.table = SmartTable::kSata;
    if (texts_.smart_table == "generic") options.table = SmartTable::kGeneric;
    if (options.has_files()) return RunInspectSmartFiles(options, out_, errors_);
    const auto machine = OpenMachine();
    if (machine == nullptr) return kExitWrongConfiguration;
    return RunInspectSmartDrives(options, *machine, *runtime_, out_, errors_);
  }

 private:
  std::filesystem::path ChannelPlace() const {
    if (texts_.data_folder.empty()) return platform::ChannelPlace({});
    return platform::ChannelPlace(std::filesystem::absolute(platform::PathFromUtf8(texts_.data_folder)));
  }

  std::string MachineName() const { return texts_.sysroot.empty() ? "this machine" : texts_.sysroot; }

  /// This machine or the recorded one; null, and a line, when there is no such folder or no way to read one.
  std::unique_ptr<platform::Machine> OpenMachine() const {
    platform::LocalMachineOptions options;
    if (!texts_.sysroot.empty()) options.sysroot = platform::PathFromUtf8(texts_.sysroot);
    std::error_code failure;
    if (!std::filesystem::is_directory(options.sysroot, failure)) {
      errors_ << "tvkctl: " << texts_.sysroot << ": there is no such folder\n";
      return nullptr;
    }
    try {
      return platform::OpenLocalMachine(options, runtime_->clock());
    } catch (const std::invalid_argument& problem) {
      errors_ << "tvkctl: " << problem.what() << '\n';
      return nullptr;
    }
  }

  const Texts& texts_;
  std::ostream& out_;
  std::ostream& errors_;
  const std::unique_ptr<platform::Runtime> runtime_;
};

// Decimal whatever its zeros in front say to other readers; nothing when it is no number from 0 to 2^64-1.
std::optional<std::uint64_t> ParseCount(std::string_view text) {
  std::uint64_t count = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return count;
}

using Work = std::function<int(const Run&)>;

void AddRecords(CLI::App& app, Texts& texts, Work& work) {
  CLI::App* const records = app.add_subcommand("records", "Show the records of the event store, oldest first");
  records->add_option("--kind", texts.kind, "Only records of this kind: item, dataset or device")
      ->type_name("KIND")
      ->check(CLI::IsMember({"item", "dataset", "device"}).description(""));
  records->add_option("--dataset", texts.dataset, "Only records of this dataset, such as CPUEvent")->type_name("NAME");
  records->add_option("--since", texts.since, "Only records from then on: 30m, 2h, 1d, or 2026-01-31T09:05:00")
      ->type_name("TIME");
  records
      ->add_option_function<std::string>(
          "--limit",
          [&texts](const std::string& text) {
            texts.limit = ParseCount(text);
            if (!texts.limit) throw CLI::ValidationError("--limit", '"' + text + "\" is no count; examples: 0, 20");
          },
          "Only the newest so many")
      ->type_name("COUNT");
  records->add_flag("--follow", texts.follow, "Go on with the records that come, until Ctrl-C");
  records->add_option("--format", texts.format, "table (the default), json (one object a line) or csv")
      ->type_name("FORMAT")
      ->check(CLI::IsMember({"table", "json", "csv"}).description(""));
  records->callback([&work] { work = &Run::Records; });
}

void AddStatus(CLI::App& app, Texts& texts, Work& work) {
  CLI::App* const status = app.add_subcommand("status", "Say how the running service stands");
  status->add_flag("--json", texts.json, "One JSON object");
  status->callback([&work] { work = &Run::Status; });
}

void AddPolicy(CLI::App& app, Texts& texts, Work& work) {
  CLI::App* const policy = app.add_subcommand("policy", "Check and apply telemetry policies");
  policy->require_subcommand(0, 1);
  const auto add_file = [&texts](CLI::App* command) {
    command->add_option("FILE", texts.policy_file, "The policy, a JSON document")->required()->type_name("");
  };
  CLI::App* const check = policy->add_subcommand("check", "Say what a policy means on this machine, and its mistakes");
  add_file(check);
  check->add_option("--scope", texts.scope, "Check for this scope, not the policy's: none, basic, enhance or full")
      ->type_name("SCOPE");
  check->add_flag("--json", texts.json, "One JSON object");
  check->callback([&work] { work = &Run::PolicyCheck; });
  policy->add_subcommand("schema", "Print the JSON Schema of policies")->callback([&work] {
    work = &Run::PolicySchema;
  });
  CLI::App* const apply = policy->add_subcommand("apply", "Check a policy and put it in force");
  add_file(apply);
  apply
      ->add_option("--policy", texts.target,
                   "The service's policy file, which is replaced; by default /etc/tvk/policy.json, on Windows "
                   "%ProgramData%\\TVK\\policy.json")
      ->type_name("TARGET");
  apply->callback([&work] { work = &Run::PolicyApply; });
}

void AddSmartOptions(CLI::App& smart, Texts& texts) {
  const auto add_file = [&smart](const char* name, std::string& text, const char* what) {
    return smart.add_option(name, text, std::string("Decode this file of 512 bytes: ") + what)
        ->type_name("FILE")
        ->excludes("--sysroot");
  };
  CLI::Option* const values = add_file("--ata-values", texts.ata_values, "SMART READ DATA of an ATA drive");
  CLI::Option* const thresholds =
      add_file("--ata-thresholds", texts.ata_thresholds, "its SMART READ THRESHOLDS")->needs(values);
  CLI::Option* const identify = add_file("--ata-identify", texts.ata_identify, "its IDENTIFY DEVICE");
  CLI::Option* const health =
      add_file("--nvme-health", texts.nvme_health, "SMART / Health Information of an NVMe drive");
  CLI::Option* const table =
      smart
          .add_option("--table", texts.smart_table,
                      "Names of the attributes: sata (the default where the drive does not turn) or generic")
          ->type_name("TABLE")
          ->check(CLI::IsMember({"sata", "generic"}).description(""));
  for (CLI::Option* const ata : {values, thresholds, identify, table})
    health->excludes(ata);
}

void AddInspect(CLI::App& app, Texts& texts, Work& work) {
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
    return [inspection](const Run& run) { return run.Inspect(inspection); };
  };
  add("cpu", "The processors' facts; cache sizes in bytes", by(RunInspectCpu));
  add_smbios(add("memory", "The memory modules and the machine's totals", by(RunInspectMemory)));
  add_smbios(add("firmware", "BIOS, system and baseboard; serial numbers hashed", by(RunInspectFirmware)));
  add("drives", "The drives, as the system knows them; serial numbers hashed", &Run::InspectDrives)
      ->add_option("--record", texts.record_folder,
                   "Ask the drives, too, and write what they answer below this folder, serial numbers blanked")
      ->type_name("DIR");
  add("battery", "The batteries, as the records have them; serial numbers hashed", &Run::InspectBattery);
  add("power", "What the machine runs on, and what its batteries hold together", &Run::InspectPower);
  AddSmartOptions(*add("smart", "The health of the drives, or of one whose answers are in files", &Run::InspectSmart),
                  texts);
}

void AddEventLog(CLI::App& app, Texts& texts, Work& work) {
  CLI::App* const event_log = app.add_subcommand("eventlog", "Queries of the Windows event log");
  event_log->require_subcommand(0, 1);
  CLI::App* const query = event_log->add_subcommand("query", "Print the structured query of a log dataset's settings");
  query
      ->add_option("--channels", texts.event_log.channels,
                   "Four bits, from the right: Application, Security, Setup, System")
      ->type_name("BITS")
      ->required();
  query->add_option("--ids", texts.event_log.ids, "Event ids, ranges, and either behind a - to leave it out: 1,5-9,-7")
      ->type_name("LIST");
  query
      ->add_option("--levels", texts.event_log.levels,
                   "Eight bits, from the right: Critical, Error, Warning, Information, Verbose; none: all")
      ->type_name("BITS")
      ->required();
  query->add_option("--window", texts.event_log.window, "How far back: milliseconds, or 90s, 10m, 24h, 7d")
      ->type_name("TIME")
      ->required();
  query->add_flag("--explain", texts.event_log.explain, "Say it in words");
  query->callback([&work] { work = &Run::EventLogQuery; });
}

}  // namespace

int RunTvkctl(std::vector<std::string> arguments, std::ostream& out, std::ostream& errors) {
  Texts texts;
  Work work;
  CLI::App app(kDescription, "tvkctl");
  app.footer(kFooter);
  app.fallthrough();  // --data-dir may stand behind the command, too
  app.require_subcommand(0, 1);
  app.set_version_flag("--version", "tvkctl " + TVK::String::UTF16ToUTF8(TvkInfo({}).GetVersion()));
  app.add_option("--data-dir", texts.data_folder,
                 "Folder of the event store, which records reads, and of the service, which status asks; by default "
                 "/var/lib/tvk, on Windows "
                 "%ProgramData%\\TVK\\data")
      ->type_name("DIR");
  AddRecords(app, texts, work);
  AddStatus(app, texts, work);
  AddPolicy(app, texts, work);
  AddInspect(app, texts, work);
  AddEventLog(app, texts, work);
  RefuseEmptyValues(app);

  std::ranges::reverse(arguments);  // as CLI11 takes them
  try {
    app.parse(std::move(arguments));
  } catch (const CLI::ParseError& failure) {
    return app.exit(failure, out, errors) == 0 ? kExitOk : kExitWrongCommandLine;
  }
  if (!work) {
    errors << "tvkctl: a command is missing; --help lists the commands\n";
    return kExitWrongCommandLine;
  }
  const int exit_code = work(Run(texts, out, errors));
  return out.flush() || exit_code != kExitOk ? exit_code : kExitFailed;
}

}  // namespace tvkctl
