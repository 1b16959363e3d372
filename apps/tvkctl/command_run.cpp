#include "apps/tvkctl/command_run.h"

#include <iostream>
#include <ostream>

#include "apps/exit_code.h"
#include "apps/tvkctl/device_facts.h"
#include "apps/tvkctl/doctor_command.h"
#include "apps/tvkctl/erase_command.h"
#include "apps/tvkctl/event_command.h"
#include "apps/tvkctl/inspect_battery.h"
#include "apps/tvkctl/inspect_drives.h"
#include "apps/tvkctl/inspect_smart.h"
#include "apps/tvkctl/patience.h"
#include "apps/tvkctl/records_command.h"
#include "apps/tvkctl/report/asked_report.h"
#include "apps/tvkctl/report/report_command.h"
#include "apps/tvkctl/status_command.h"
#include "client/machine/machine_services.h"
#include "client/text/string.h"
#include "component/component_datasets.h"
#include "platform/files.h"
#include "platform/local.h"
#include "platform/local_channel.h"
#include "platform/process_host.h"
#include "platform/terminal.h"

namespace tvkctl {

Run::Run(const Texts& texts, std::ostream& out, std::ostream& errors)
    : texts_(texts), out_(out), errors_(errors), runtime_(platform::MakeRealRuntime({})) {}

int Run::Records() const {
  RecordsOptions options;
  options.data_dir = DataFolder();
  if (texts_.kind == "item") options.kind = TVK::RecordKind::kItem;
  if (texts_.kind == "dataset") options.kind = TVK::RecordKind::kDataset;
  if (texts_.kind == "device") options.kind = TVK::RecordKind::kDevice;
  if (texts_.format == "json") options.format = RecordFormat::kJson;
  if (texts_.format == "csv") options.format = RecordFormat::kCsv;
  options.dataset = texts_.dataset;
  options.item = texts_.item;
  options.since = texts_.since;
  options.until = texts_.until;
  options.limit = texts_.limit;
  options.follow = texts_.follow;
  options.reverse = texts_.reverse;
  options.utc = texts_.utc;
  options.terminal_width = platform::TerminalWidth();
  for (const TVK::Dataset& dataset : TVK::ComponentDatasets().datasets())
    options.datasets.push_back(TVK::String::UTF16ToUTF8(dataset.row.name));
  if (!options.follow) return RunRecords(options, *runtime_, out_, errors_, nullptr);
  const auto stop = runtime_->MakeEvent(platform::EventReset::kManual);
  const auto interrupts = platform::InterruptWatcher::Start({.stop = [&] { stop->Set(); }, .reload = {}});
  return RunRecords(options, *runtime_, out_, errors_, stop.get());
}

int Run::Report() const {
  ReportOptions options;
  options.data_dir = DataFolder();
  options.standing = [&] {
    const StandingSources sources{
        .place = ChannelPlace(), .data_folder = DataFolder(), .policy_file = ServicePolicyFile(), .traits = [&] {
          return LocalTraits();
        }};
    return AskStanding(sources, TVK::ComponentDatasets(), *runtime_);
  };
  options.ask_service = [&](std::optional<std::int64_t> since, TVK::Report& report, Standing& standing,
                            std::string& problem) {
    return AskReport(ChannelPlace(), since, *runtime_, report, standing, problem);
  };
  options.since = texts_.since;
  if (!texts_.html_file.empty()) options.html_file = platform::PathFromUtf8(texts_.html_file);
  options.width = platform::TerminalWidth().value_or(options.width);
  options.tells_progress = platform::StandardErrorIsTerminal();
  return RunReport(options, *runtime_, out_, errors_);
}

int Run::Erase() const {
  const platform::DefaultPlaces places = platform::GetDefaultPlaces();
  EraseOptions options;
  options.places = {places.data_folder, places.log_folder};
  if (!texts_.data_folder.empty()) {
    options.places.data_folder = std::filesystem::absolute(platform::PathFromUtf8(texts_.data_folder));
    options.places.log_folder = options.places.data_folder / "log";
  }
  if (!texts_.log_folder.empty()) options.places.log_folder = platform::PathFromUtf8(texts_.log_folder);
  options.channel = ChannelPlace();
  options.policy_file = texts_.target.empty() ? places.policy_file : platform::PathFromUtf8(texts_.target);
  options.all = texts_.all;
  options.dataset = texts_.dataset;
  options.before = texts_.before;
  options.stop = texts_.stop;
  options.dry_run = texts_.dry_run;
  options.yes = texts_.yes;
  return RunErase(options, *runtime_, out_, errors_);
}

int Run::Status() const {
  return RunStatus({.place = ChannelPlace(),
                    .data_folder = DataFolder(),
                    .policy_file = ServicePolicyFile(),
                    .json = texts_.json,
                    .width = platform::TerminalWidth().value_or(kAnyWidth)},
                   *runtime_, out_, errors_);
}

int Run::Doctor() const {
  const std::shared_ptr<platform::Machine> machine = OpenMachine();
  if (machine == nullptr) return kExitWrongConfiguration;
  return RunDoctor({.place = ChannelPlace(),
                    .data_folder = DataFolder(),
                    .policy_file = ServicePolicyFile(),
                    .dataset = texts_.dataset,
                    .json = texts_.json,
                    .width = platform::TerminalWidth().value_or(kAnyWidth)},
                   TVK::ComponentDatasets(), machine, *runtime_, out_, errors_);
}

int Run::Event() const {
  return RunEvent(
      {.place = ChannelPlace(), .dataset = texts_.event_dataset, .item = texts_.event_item, .data = texts_.event_data},
      *runtime_, out_, errors_);
}

int Run::PolicyCheck() const {
  PolicyCheckOptions options{.policy = PolicyInForce(ChannelPlace(), *runtime_)};
  if (!texts_.policy_file.empty()) options.policy = PolicyFile(platform::PathFromUtf8(texts_.policy_file), std::cin);
  if (!texts_.against_file.empty()) {
    options.against = PolicyFile(platform::PathFromUtf8(texts_.against_file), std::cin);
  }
  if (!texts_.scope.empty()) options.scope = TVK::String::UTF8ToUTF16(texts_.scope);
  options.json = texts_.json;
  options.width = platform::TerminalWidth().value_or(options.width);
  if (!ReadDevices(options.devices)) return kExitWrongConfiguration;
  return RunPolicyCheck(options, TVK::ComponentDatasets(), out_, errors_);
}

int Run::InspectFacts() const {
  const auto machine = OpenMachine();
  if (machine == nullptr) return kExitWrongConfiguration;
  return RunInspectFacts(TVK::MachineServices(*machine, *runtime_).machine_information.traits(), texts_.json, out_);
}

int Run::Patiently(const char* doing, const std::function<int(const Run&)>& work) const {
  std::optional<Patience> patience;
  // A policy may be typed.
  const bool waits_for_person = texts_.policy_file == "-" || texts_.against_file == "-";
  if (doing != nullptr && !waits_for_person && platform::StandardErrorIsTerminal()) {
    patience.emplace(*runtime_, doing, errors_);
  }
  return work(*this);
}

int Run::Print(const std::string& text) const {
  out_ << text;
  return kExitOk;
}

int Run::PolicySchema() const {
  return RunPolicySchema(out_);
}

int Run::PolicyApply() const {
  const auto machine = OpenMachine();
  if (machine == nullptr) return kExitWrongConfiguration;
  PolicyApplyOptions options;
  options.file = platform::PathFromUtf8(texts_.policy_file);
  options.target = ServicePolicyFile();
  options.device = TVK::MachineServices(*machine, *runtime_).machine_information.traits();
  return RunPolicyApply(options, TVK::ComponentDatasets(), out_, errors_);
}

int Run::Inspect(Inspection inspection) const {
  const auto machine = OpenMachine();
  if (machine == nullptr) return kExitWrongConfiguration;
  return inspection({platform::PathFromUtf8(texts_.smbios_file), texts_.json, MachineName()}, *machine, out_, errors_);
}

int Run::InspectDrives() const {
  const auto machine = OpenMachine();
  if (machine == nullptr) return kExitWrongConfiguration;
  return RunInspectDrives({platform::PathFromUtf8(texts_.record_folder), texts_.json, MachineName()}, *machine, out_,
                          errors_);
}

int Run::InspectBattery() const {
  const auto machine = OpenMachine();
  if (machine == nullptr) return kExitWrongConfiguration;
  TVK::MachineServices services(*machine, *runtime_);
  return RunInspectBattery(texts_.json, services.batteries, out_, errors_);
}

int Run::InspectPower() const {
  const auto machine = OpenMachine();
  if (machine == nullptr) return kExitWrongConfiguration;
  TVK::MachineServices services(*machine, *runtime_);
  return RunInspectPower(texts_.json, machine->power(), services.batteries, out_, errors_);
}

int Run::EventLogQuery() const {
  return RunEventLogQuery(texts_.event_log, out_, errors_);
}

int Run::InspectSmart() const {
  SmartOptions options{.ata_values = platform::PathFromUtf8(texts_.smart.ata_values),
                       .ata_thresholds = platform::PathFromUtf8(texts_.smart.ata_thresholds),
                       .ata_identify = platform::PathFromUtf8(texts_.smart.ata_identify),
                       .nvme_health = platform::PathFromUtf8(texts_.smart.nvme_health),
                       .json = texts_.json,
                       .machine_name = MachineName()};
  if (texts_.smart.table == "sata") options.table = SmartTable::kSata;
  if (texts_.smart.table == "generic") options.table = SmartTable::kGeneric;
  if (options.has_files()) return RunInspectSmartFiles(options, out_, errors_);
  const auto machine = OpenMachine();
  if (machine == nullptr) return kExitWrongConfiguration;
  return RunInspectSmartDrives(options, *machine, *runtime_, out_, errors_);
}

bool Run::ReadDevices(std::vector<CheckedDevice>& devices) const {
  if (texts_.facts_files.empty()) {
    const auto machine = OpenMachine();
    if (machine == nullptr) return false;
    devices = {{{}, TVK::MachineServices(*machine, *runtime_).machine_information.traits()}};
    return true;
  }
  devices.clear();
  for (const std::string& file : texts_.facts_files) {
    std::string problem;
    const auto traits = ReadFactsFile(platform::PathFromUtf8(file), problem);
    if (!traits) {
      errors_ << "tvkctl: " << TVK::HarmlessText(problem) << '\n';
      return false;
    }
    devices.push_back({file, *traits});
  }
  return true;
}

TVK::DeviceTraits Run::LocalTraits() const {
  const auto machine = OpenMachine();
  if (machine == nullptr) return {};
  return TVK::MachineServices(*machine, *runtime_).machine_information.traits();
}

std::filesystem::path Run::DataFolder() const {
  return texts_.data_folder.empty() ? platform::GetDefaultPlaces().data_folder
                                    : platform::PathFromUtf8(texts_.data_folder);
}

std::filesystem::path Run::ServicePolicyFile() const {
  return texts_.target.empty() ? platform::GetDefaultPlaces().policy_file : platform::PathFromUtf8(texts_.target);
}

std::filesystem::path Run::ChannelPlace() const {
  if (texts_.data_folder.empty()) return platform::ChannelPlace({});
  return platform::ChannelPlace(std::filesystem::absolute(platform::PathFromUtf8(texts_.data_folder)));
}

std::string Run::MachineName() const {
  return texts_.sysroot.empty() ? "this machine" : texts_.sysroot;
}

std::unique_ptr<platform::Machine> Run::OpenMachine() const {
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

}  // namespace tvkctl
