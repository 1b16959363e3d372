#include "apps/tvkctl/fact_source.h"

#include <algorithm>
#include <functional>
#include <map>
#include <system_error>

#include "client/log/limited_calls.h"
#include "platform/batteries.h"
#include "platform/drives.h"
#include "platform/event_log.h"
#include "platform/event_log_reader.h"
#include "platform/firmware.h"
#include "platform/memory.h"
#include "platform/processors.h"
#include "platform/volumes.h"

namespace tvkctl {
namespace {

using platform::DriveBus;
using platform::Machine;

SourceReport Failure(const std::string& what, std::uint32_t error) {
  const std::error_code code(static_cast<int>(error), std::system_category());
  const bool no_right = code == std::errc::permission_denied || code == std::errc::operation_not_permitted;
  const bool nothing = code == std::errc::no_such_file_or_directory || code == std::errc::function_not_supported;
  return {no_right  ? SourceState::kNoRight
          : nothing ? SourceState::kNothing
                    : SourceState::kFails,
          error == 0 ? what : what + ": error " + std::to_string(error) + ", " + code.message()};
}

SourceReport Counted(std::size_t count, const std::string& one, const std::string& more) {
  if (count == 0) return {SourceState::kNothing, "this machine has no " + one};
  return {SourceState::kTells, std::to_string(count) + ' ' + (count == 1 ? one : more)};
}

SourceReport Processors(Machine& machine) {
  const platform::TopologyReading reading = machine.processors().ReadTopology();
  if (!reading.supported || reading.error != 0) {
    return Failure("the processors cannot be read", static_cast<std::uint32_t>(reading.error));
  }
  return Counted(reading.topology.logical_processors, "processor", "processors");
}

SourceReport Memory(Machine& machine) {
  std::uint32_t error = 0;
  if (!machine.memory().ReadStatus(&error)) return Failure("the memory's use cannot be read", error);
  return {SourceState::kTells, "the memory's use is told"};
}

SourceReport Firmware(Machine& machine) {
  std::uint32_t error = 0;
  if (machine.firmware().ReadSmbios(&error).empty()) return Failure("the SMBIOS table cannot be read", error);
  return {SourceState::kTells, "there is an SMBIOS table"};
}

SourceReport Volumes(Machine& machine) {
  return Counted(machine.volumes().List().size(), "volume", "volumes");
}

SourceReport Batteries(Machine& machine) {
  return Counted(machine.batteries().List().size(), "battery", "batteries");
}

SourceReport EventLog(Machine& machine) {
  const platform::EventLogStatus status = machine.event_log().ReadStatus("System");
  if (status.failure == platform::EventLogFailure::kNotSupported) {
    return {SourceState::kNothing, "this machine keeps no event log"};
  }
  if (status.failure != platform::EventLogFailure::kNone)
    return Failure("the log \"System\" cannot be read", status.error);
  return {SourceState::kTells, "the log \"System\" is there"};
}

SourceReport Drives(Machine& machine, const std::string& kind,
                    const std::function<bool(const platform::DriveListing&)>& is_of_kind) {
  std::vector<platform::DriveListing> drives = machine.drives().List();
  std::erase_if(drives, [&](const platform::DriveListing& drive) { return !is_of_kind(drive); });
  for (const platform::DriveListing& drive : drives) {
    const platform::DriveOpening opening = machine.drives().Open(drive);
    if (opening.drive != nullptr) continue;
    const std::string what = drive.path + " cannot be asked";
    if (opening.result == platform::DriveResult::kNoRight) return {SourceState::kNoRight, what};
    return Failure(what, opening.error);
  }
  return Counted(drives.size(), kind, kind + 's');
}

SourceReport NvmeDrives(Machine& machine) {
  return Drives(machine, "NVMe drive", [](const auto& drive) { return drive.bus == DriveBus::kNvme; });
}

SourceReport SolidStateDrives(Machine& machine) {
  return Drives(machine, "solid-state drive on SATA",
                [](const auto& drive) { return drive.bus == DriveBus::kAta && drive.rotating == false; });
}

SourceReport AtaDrives(Machine& machine) {
  return Drives(machine, "drive on SATA or USB",
                [](const auto& drive) { return drive.bus == DriveBus::kAta || drive.bus == DriveBus::kUsb; });
}

}  // namespace

SourceReport TrySource(std::wstring_view dataset, const std::shared_ptr<Machine>& machine, platform::Runtime& runtime) {
  using Try = SourceReport (*)(Machine&);
  static const std::map<std::wstring_view, Try> tries = {
      {L"StorageEvent", Volumes},
      {L"CPUEvent", Processors},
      {L"SystemBIOSEvent", Firmware},
      {L"MemoryEvent", Memory},
      {L"BatteryEvent", Batteries},
      {L"EventViewerLogsEvent", EventLog},
      {L"EventViewerLogDBEvent", EventLog},
      {L"CrashEvent", EventLog},
      {L"PCIe_NVMe_SMARTEvent", NvmeDrives},
      {L"PCIe_NVMe_SelfTestResult", NvmeDrives},
      {L"SATA_SSD_SMARTEvent", SolidStateDrives},
      {L"SATA_SSD_SelfTestResult", SolidStateDrives},
      {L"SMARTEvent", AtaDrives},
  };
  if (dataset == L"DeviceContext") {
    return {SourceState::kUnknown, "the service's own, of the system, its settings and the policy"};
  }
  if (dataset == L"TVKEvent") {
    return {SourceState::kUnknown, "written when somebody calls tvkctl event; nothing is observed for it"};
  }
  const auto found = tries.find(dataset);
  if (found == tries.end()) return {SourceState::kUnknown, "observed by the user agent, in the user's session"};
  const auto report = std::make_shared<SourceReport>();
  TVK::LimitedCalls calls(runtime, {}, "tvk-source");
  const auto outcome =
      calls.Begin([machine, report, ask = found->second] { *report = ask(*machine); }, kSourceLimit).Await(nullptr);
  if (outcome == TVK::LimitedCalls::Outcome::kDone) return *report;
  if (outcome == TVK::LimitedCalls::Outcome::kTimedOut) {
    return {SourceState::kFails,
            "the machine did not answer within " + std::to_string(kSourceLimit.count()) + " seconds"};
  }
  return {SourceState::kFails, "the machine could not be asked"};
}

}  // namespace tvkctl
