#include "apps/tvkctl/inspect_commands.h"

#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "apps/exit_code.h"
#include "apps/tvkctl/output.h"
#include "client/identity/machine_firmware.h"
#include "client/log/wide_format.h"
#include "client/smbios/smbios_dump.h"
#include "client/smbios/smbios_tool.h"
#include "client/text/string.h"
#include "monitors/system/cpu_event_monitor.h"
#include "monitors/system/memory_info.h"
#include "monitors/system/system_bios_info.h"
#include "platform/files.h"
#include "platform/memory.h"
#include "platform/processors.h"

namespace tvkctl {
namespace {

/// Far above the largest table that firmware makes; keeps a wrong file from filling the memory.
constexpr std::size_t kTableSizeLimit = 16u << 20;

using TVK::String;
using Rows = std::vector<std::vector<std::wstring>>;

/// A table of which at least one structure can be decoded, or the exit code that says why there is none.
struct OpenTable {
  std::unique_ptr<SMBiosTool> tool;
  int exit_code = kExitOk;
};

void Complain(const std::string& source, const std::string& problem, std::ostream& errors) {
  errors << "tvkctl: " << source << ": " << problem << '\n';
}

void Warn(const std::string& source, const std::string& problem, std::ostream& errors) {
  if (!problem.empty()) Complain("warning: " + source, problem, errors);
}

OpenTable OpenFile(const std::filesystem::path& file, std::ostream& errors) {
  platform::FileProblem problem;
  const std::optional<std::string> content = platform::ReadWholeFile(file, kTableSizeLimit, &problem);
  if (!content) {
    errors << "tvkctl: " << problem.text << '\n';
    return {nullptr, kExitWrongConfiguration};
  }
  const auto* const begin = reinterpret_cast<const std::uint8_t*>(content->data());
  TVK::SmbiosDump dump = TVK::NormaliseSmbiosDump({begin, content->size()});
  if (dump.rsmb.empty()) {
    Complain(platform::PathToUtf8(file), dump.problem, errors);
    return {nullptr, kExitWrongConfiguration};
  }
  Warn(platform::PathToUtf8(file), dump.problem, errors);
  OpenTable table{std::make_unique<SMBiosTool>(std::move(dump.rsmb))};
  table.tool->Initialize();
  return table;
}

OpenTable OpenOwn(const std::string& name, platform::Machine& machine, std::ostream& errors) {
  OpenTable table{std::make_unique<SMBiosTool>(machine.firmware())};
  table.tool->Initialize();
  if (table.tool->Survey().structures == 0) {
    Complain(name, table.tool->Problem(), errors);
    return {nullptr, kExitFailed};
  }
  Warn(name, table.tool->Problem(), errors);
  return table;
}

void WriteItemData(const ItemData& data, std::ostream& out) {
  Rows rows;
  for (const auto& [key, text] : data)
    rows.push_back({key, text});
  WriteColumns(rows, out);
}

void WriteMemoryText(const MemoryInfo& memory, std::ostream& out) {
  Rows rows = {{L"HANDLE", L"ARRAY", L"SIZE", L"TYPE", L"SPEED", L"CLOCK", L"ERROR CORRECTION", L"LOCATOR", L"BANK",
                L"MANUFACTURER"}};
  for (const TVK::MemorySlot& slot : memory.slots()) {
    rows.push_back({TVK::FormatWide(L"0x%04X", slot.handle), TVK::FormatWide(L"0x%04X", slot.array_handle),
                    std::wstring(slot.size), std::wstring(slot.type), std::wstring(slot.speed),
                    std::wstring(slot.clock_speed), std::wstring(slot.error_correction),
                    std::wstring(slot.device_locator), std::wstring(slot.bank_label), std::wstring(slot.manufacturer)});
  }
  WriteColumns(rows, out);
  out << '\n';
  WriteColumns({{L"errorCorrection", std::wstring(memory.error_correction())},
                {L"TotalPhysicalMemory", MemoryInfo::AmountText(memory.total_physical_kb())},
                {L"MaximumPhysicalMemory", MemoryInfo::AmountText(memory.maximum_physical_kb())}},
               out);
}

Json::Value ToJson(const MemoryInfo& memory) {
  Json::Value value;
  value["slots"] = Json::arrayValue;
  for (const TVK::MemorySlot& slot : memory.slots()) {
    Json::Value entry = ItemDataToJson(slot.ItemData());
    entry["handle"] = slot.handle;
    entry["array_handle"] = slot.array_handle;
    value["slots"].append(std::move(entry));
  }
  value["errorCorrection"] = String::UTF16ToUTF8(memory.error_correction());
  value["TotalPhysicalMemory"] = String::UTF16ToUTF8(MemoryInfo::AmountText(memory.total_physical_kb()));
  value["MaximumPhysicalMemory"] = String::UTF16ToUTF8(MemoryInfo::AmountText(memory.maximum_physical_kb()));
  return value;
}

/// As the BIOS dataset has it.
ItemData BiosData(const TVK::SmbiosIdentity& identity) {
  SystemBiosInfo info;
  info.Describe(identity, {});
  return info.AllKeys();
}

ItemData SystemData(const TVK::SmbiosIdentity& identity) {
  return {{L"manufacturer", identity.manufacturer},
          {L"product", identity.product_name},
          {L"version", identity.product_version},
          {L"serialHash", identity.serial_hash}};
}

ItemData BoardData(const TVK::SmbiosIdentity& identity) {
  return {{L"manufacturer", identity.board_manufacturer},
          {L"product", identity.board_product},
          {L"version", identity.board_version},
          {L"serialHash", identity.board_serial_hash}};
}

void WriteFirmwareText(const TVK::SmbiosIdentity& identity, std::ostream& out) {
  ItemData all = BiosData(identity);
  for (const auto& [key, text] : SystemData(identity))
    all[L"system " + key] = text;
  for (const auto& [key, text] : BoardData(identity))
    all[L"baseboard " + key] = text;
  WriteItemData(all, out);
}

/// The firmware's facts of the file or the machine; nothing, and the exit code, when there are none.
std::optional<TVK::SmbiosIdentity> ReadIdentity(const InspectOptions& options, platform::Machine& machine,
                                                std::ostream& errors, int& exit_code) {
  if (!options.smbios_file.empty()) {
    const OpenTable table = OpenFile(options.smbios_file, errors);
    exit_code = table.exit_code;
    if (table.tool == nullptr) return std::nullopt;
    return TVK::ReadSmbiosIdentity(*table.tool);
  }
  SMBiosTool tool(machine.firmware());
  tool.Initialize();
  const std::string problem = tool.Problem();
  const TVK::SmbiosIdentity identity = TVK::ReadMachineFirmware(machine.firmware());
  if (identity == TVK::SmbiosIdentity()) {
    Complain(options.machine_name, problem, errors);
    exit_code = kExitFailed;
    return std::nullopt;
  }
  Warn(options.machine_name,
       problem + (identity.smbios_version.empty() ? "; shown is what the system keeps of it" : ""), errors);
  return identity;
}

}  // namespace

int RunInspectCpu(const InspectOptions& options, platform::Machine& machine, std::ostream& out, std::ostream& errors) {
  _SYSCPU_INFORMATION facts;
  const int error = CPUInfo::GetCpuInformation(machine.processors(), facts);
  if (error != 0 || (facts.processor_name.empty() && facts.number_of_logical_processors == 0)) {
    Complain(
        options.machine_name,
        "nothing tells of its processors" + (error != 0 ? " (error " + std::to_string(error) + ')' : std::string()),
        errors);
    return kExitFailed;
  }
  const ItemData data = CpuEventMonitor::FactsToItemData(facts);
  options.json ? WriteJsonLine(ItemDataToJson(data), out) : WriteItemData(data, out);
  return kExitOk;
}

int RunInspectMemory(const InspectOptions& options, platform::Machine& machine, std::ostream& out,
                     std::ostream& errors) {
  const bool own = options.smbios_file.empty();
  const OpenTable table = own ? OpenOwn(options.machine_name, machine, errors) : OpenFile(options.smbios_file, errors);
  if (table.tool == nullptr) return table.exit_code;
  // What this system sees says nothing about the computer of a file.
  const auto status = own ? machine.memory().ReadStatus() : std::nullopt;
  MemoryInfo memory(*table.tool, status ? status->total_bytes >> 10 : 0);
  memory.GetMemoryInfo();
  options.json ? WriteJsonLine(ToJson(memory), out) : WriteMemoryText(memory, out);
  return kExitOk;
}

int RunInspectFirmware(const InspectOptions& options, platform::Machine& machine, std::ostream& out,
                       std::ostream& errors) {
  int exit_code = kExitOk;
  const std::optional<TVK::SmbiosIdentity> identity = ReadIdentity(options, machine, errors, exit_code);
  if (!identity) return exit_code;
  if (!options.json) {
    WriteFirmwareText(*identity, out);
    return kExitOk;
  }
  Json::Value value = ItemDataToJson(BiosData(*identity));
  value["system"] = ItemDataToJson(SystemData(*identity));
  value["baseboard"] = ItemDataToJson(BoardData(*identity));
  WriteJsonLine(value, out);
  return kExitOk;
}

}  // namespace tvkctl
