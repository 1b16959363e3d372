// What the commands of tvkctl do with what stands on the command line.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/tvkctl/inspect_commands.h"
#include "apps/tvkctl/inspect_options.h"
#include "apps/tvkctl/policy_commands.h"
#include "client/policy/eligibility_filter.h"
#include "platform/machine.h"
#include "platform/runtime.h"

namespace tvkctl {

/// Options as they stand on the command line, in UTF-8.
struct Texts {
  std::string data_folder, log_folder;
  std::string kind, dataset, item, since, until, format = "table";
  std::optional<std::uint64_t> limit;
  bool follow = false, reverse = false, utc = false;
  std::string before;
  bool all = false, stop = false, dry_run = false, yes = false;
  std::string policy_file, scope, target, against_file;
  std::vector<std::string> facts_files;
  std::string smbios_file, sysroot, record_folder;
  EventLogOptions event_log;
  std::string html_file;
  std::string event_dataset, event_item;
  std::vector<std::string> event_data;
  SmartTexts smart;
  std::string shell;
  bool json = false;
};

/// What one run works with. The machine is opened by the commands that ask it. Each operation is a command and gives
/// the exit code.
class Run {
 public:
  using Inspection = int (*)(const InspectOptions&, platform::Machine&, std::ostream&, std::ostream&);

  /// `texts` and the streams must outlive the object.
  Run(const Texts& texts, std::ostream& out, std::ostream& errors);

  int Records() const;
  int Report() const;
  int Erase() const;
  int Status() const;
  int Doctor() const;
  int Event() const;
  int PolicyCheck() const;
  int PolicySchema() const;
  int PolicyApply() const;
  int Inspect(Inspection inspection) const;
  int InspectFacts() const;
  int InspectDrives() const;
  int InspectBattery() const;
  int InspectPower() const;
  int InspectSmart() const;
  int EventLogQuery() const;
  /// Runs `work`, a command. Where standard error is a terminal, and what is being done is told, it says there that it
  /// takes long; see Patience.
  int Patiently(const char* doing, const std::function<int(const Run&)>& work) const;
  /// Prints `text` as it is.
  int Print(const std::string& text) const;

 private:
  /// Those of the facts files, else this machine or the recorded one; false, and a line, when one cannot be read.
  bool ReadDevices(std::vector<CheckedDevice>& devices) const;
  /// Nothing is known of a machine that cannot be opened.
  TVK::DeviceTraits LocalTraits() const;
  std::filesystem::path DataFolder() const;
  std::filesystem::path ServicePolicyFile() const;
  std::filesystem::path ChannelPlace() const;
  std::string MachineName() const;
  /// This machine or the recorded one; null, and a line, when there is no such folder or no way to read one.
  std::unique_ptr<platform::Machine> OpenMachine() const;

  const Texts& texts_;
  std::ostream& out_;
  std::ostream& errors_;
  const std::unique_ptr<platform::Runtime> runtime_;
};

}  // namespace tvkctl
