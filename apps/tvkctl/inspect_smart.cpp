#include "apps/tvkctl/inspect_smart.h"

#include <cstdint>
#include <memory>
#include <ostream>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "apps/exit_code.h"
#include "apps/tvkctl/output.h"
#include "client/storage/ata_identify.h"
#include "client/storage/hard_disk_info_collector.h"
#include "client/text/hash_utility.h"
#include "client/text/string.h"
#include "monitors/storage/pcie_nvme_smart_info.h"
#include "monitors/storage/smart_info.h"
#include "platform/ata_command.h"
#include "platform/files.h"

namespace tvkctl {
namespace {

using StorageCollector::DriveKind;
using StorageCollector::HardDisk;
using StorageCollector::Silence;
using TVK::String;

constexpr char kNoNamedAttribute[] = "it tells no attribute that has a name";

/// A file of one sector or page, or what is wrong with it.
class SectorFile {
 public:
  SectorFile(const std::filesystem::path& file, bool (*is_intact)(std::span<const std::uint8_t>)) {
    if (file.empty()) return;
    platform::FileProblem problem;
    const auto content = platform::ReadWholeFile(file, kSizeLimit, &problem);
    if (!content) {
      problem_ = problem.text;
      return;
    }
    bytes_.assign(content->begin(), content->end());
    if (bytes_.size() != platform::kAtaSectorSize) {
      problem_ = platform::PathToUtf8(file) + ": has " + std::to_string(bytes_.size()) + " bytes instead of 512";
    } else if (!is_intact(bytes_)) {
      problem_ = platform::PathToUtf8(file) + ": the checksum is wrong";
    }
  }

  const std::vector<std::uint8_t>& bytes() const { return bytes_; }  ///< Empty: no file.
  const std::string& problem() const { return problem_; }

 private:
  static constexpr std::size_t kSizeLimit = 1 << 20;  // so that a longer file's size can be told

  std::vector<std::uint8_t> bytes_;
  std::string problem_;
};

bool HasNoChecksum(std::span<const std::uint8_t>) {
  return true;
}

std::string Utf8(std::wstring_view text) {
  return TVK::HarmlessText(String::UTF16ToUTF8(text));
}

int Fail(ExitCode code, const std::string& problem, std::ostream& errors) {
  errors << "tvkctl: " << problem << '\n';
  return code;
}

/// Adds table, item data and what is failing to `drive`; false when no attribute has a name.
bool AddAttributes(const TVK::AtaSmart& smart, SmartTable table, Json::Value& drive) {
  const TVK::Log silent;
  const SmartInfo generic(silent);
  const SATASmartInfo sata(silent);
  const SmartInfo& info = table == SmartTable::kSata ? sata : generic;
  const auto data = info.ToItemData(smart);
  drive["table"] = table == SmartTable::kSata ? "sata" : "generic";
  drive["itemData"] = ItemDataToJson(data.value_or(ItemData()));
  Json::Value failing(Json::arrayValue);
  for (const StorageCollector::HardDiskSmartInfo& entry : info.PredictedFailures(smart)) {
    const std::string name = Utf8(entry.getName());
    bool told = false;  // two attributes may have one name
    for (const Json::Value& other : failing)
      told |= other.asString() == name;
    if (!told) failing.append(name);
  }
  drive["failing"] = std::move(failing);
  return data.has_value();
}

void AddHealth(const TVK::NvmeHealth& health, Json::Value& drive) {
  const TVK::Log silent;
  PCIeNVMeSmartInfo info(silent);
  ItemData data;
  info.ReadSMARTInfo([&](TVK::NvmeHealth& read) {
    read = health;
    return 0;
  });
  info.GetSmartInfoList(data);
  drive["table"] = "nvme";
  drive["itemData"] = ItemDataToJson(data);
}

void AddIdentity(const TVK::AtaIdentity& identity, Json::Value& drive) {
  const std::string& serial = identity.serial_number;
  drive["model"] = identity.model;
  drive["firmware"] = identity.firmware_version;
  drive["serialHash"] = serial.empty() ? "" : Utf8(TVK::HashUtility::HashSerialNumber(String::UTF8ToUTF16(serial)));
  drive["rotating"] = identity.rotating ? Json::Value(*identity.rotating) : Json::Value();
  drive["smartSupported"] = identity.smart_supported;
  drive["smartEnabled"] = identity.smart_enabled;
  drive["selfTestSupported"] = identity.self_test_supported;
}

/// Facts first, then the item data, then what is failing.
void WriteText(const Json::Value& drive, std::ostream& out) {
  std::vector<std::vector<std::wstring>> facts;
  std::vector<std::vector<std::wstring>> data;
  for (const std::string& key : drive.getMemberNames()) {
    const Json::Value& value = drive[key];
    const std::wstring name = String::UTF8ToUTF16(key);
    if (value.isBool()) {
      facts.push_back({name, value.asBool() ? L"yes" : L"no"});
    } else if (value.isObject()) {
      for (const std::string& entry : value.getMemberNames())
        data.push_back({String::UTF8ToUTF16(entry), String::UTF8ToUTF16(value[entry].asString())});
    } else if (!value.isArray()) {
      facts.push_back({name, String::UTF8ToUTF16(value.asString())});
    }
  }
  if (drive.isMember("failing")) {
    std::wstring names;
    for (const Json::Value& name : drive["failing"])
      names += (names.empty() ? L"" : L", ") + String::UTF8ToUTF16(name.asString());
    facts.push_back({L"failing", names.empty() ? L"none" : names});
  }
  WriteColumns(facts, out);
  if (!facts.empty() && !data.empty()) out << '\n';
  WriteColumns(data, out);
}

/// Facts of the drive, and what it tells of its health or why it does not.
struct DriveReport {
  Json::Value drive;
  std::string problem;
};

std::string ProblemOf(Silence silence) {
  return Utf8(StorageCollector::Words(silence));
}

std::string ReadHealth(const HardDisk& disk, std::optional<SmartTable> table, Json::Value& drive) {
  if (disk.kind() == DriveKind::kNvme) {
    const auto health = disk.ReadNvmeHealth(nullptr);
    if (!health.content) return ProblemOf(health.silence);
    AddHealth(*health.content, drive);
    return {};
  }
  const auto smart = disk.ReadAtaSmart(nullptr);
  if (!smart.content) return ProblemOf(smart.silence);
  const SmartTable own = disk.kind() == DriveKind::kSataSsd ? SmartTable::kSata : SmartTable::kGeneric;
  return AddAttributes(*smart.content, table.value_or(own), drive) ? "" : kNoNamedAttribute;
}

DriveReport Report(const HardDisk& disk, std::optional<SmartTable> table) {
  DriveReport report;
  report.drive["path"] = Utf8(disk.getDrivePath());
  report.drive["model"] = Utf8(disk.getProductName());
  report.drive["serialHash"] = Utf8(disk.getHashedSerialNumber());
  report.problem = ReadHealth(disk, table, report.drive);
  if (!report.problem.empty()) report.drive["problem"] = report.problem;
  return report;
}

}  // namespace

int RunInspectSmartFiles(const SmartOptions& options, std::ostream& out, std::ostream& errors) {
  const SectorFile values(options.ata_values, TVK::HasAtaChecksum);
  const SectorFile thresholds(options.ata_thresholds, TVK::HasAtaChecksum);
  const SectorFile identify(options.ata_identify, TVK::IsAtaIdentifyIntact);
  const SectorFile health(options.nvme_health, HasNoChecksum);
  for (const SectorFile* const file : {&values, &thresholds, &identify, &health})
    if (!file->problem().empty()) return Fail(kExitWrongConfiguration, file->problem(), errors);

  Json::Value drive(Json::objectValue);
  SmartTable table = SmartTable::kGeneric;
  if (!identify.bytes().empty()) {
    const auto identity = TVK::DecodeAtaIdentify(identify.bytes());
    if (!identity) {
      return Fail(kExitWrongConfiguration,
                  platform::PathToUtf8(options.ata_identify) + ": is no identification of an ATA drive", errors);
    }
    AddIdentity(*identity, drive);
    if (identity->rotating == std::optional(false)) table = SmartTable::kSata;
  }
  if (const auto smart = TVK::DecodeAtaSmart(values.bytes(), thresholds.bytes())) {
    if (!AddAttributes(*smart, options.table.value_or(table), drive)) {
      errors << "tvkctl: warning: " << platform::PathToUtf8(options.ata_values) << ": " << kNoNamedAttribute << '\n';
    }
  }
  if (const auto page = TVK::DecodeNvmeHealth(health.bytes())) AddHealth(*page, drive);
  options.json ? WriteJsonLine(drive, out) : WriteText(drive, out);
  return kExitOk;
}

int RunInspectSmartDrives(const SmartOptions& options, platform::Machine& machine, platform::Runtime& runtime,
                          std::ostream& out, std::ostream& errors) {
  StorageCollector::HardDiskInfoCollector collector(runtime, machine.drives());
  std::vector<DriveReport> reports;
  bool told = false;
  for (const HardDisk& disk : collector.GetDrives()) {
    reports.push_back(Report(disk, options.table));
    told |= reports.back().problem.empty();
  }
  if (reports.empty()) return Fail(kExitFailed, options.machine_name + ": nothing tells of its drives", errors);
  if (!told) {
    for (const DriveReport& report : reports)
      Fail(kExitFailed, report.drive["path"].asString() + ": " + report.problem, errors);
    return kExitFailed;
  }
  if (options.json) {
    Json::Value value;
    for (DriveReport& report : reports)
      value["drives"].append(std::move(report.drive));
    WriteJsonLine(value, out);
    return kExitOk;
  }
  for (const DriveReport& report : reports) {
    if (&report != &reports.front()) out << '\n';
    WriteText(report.drive, out);
  }
  return kExitOk;
}

}  // namespace tvkctl
