#include "apps/tvkctl/inspect_drives.h"

#include <ostream>
#include <vector>

#include "apps/exit_code.h"
#include "apps/tvkctl/output.h"
#include "apps/tvkctl/record_drives.h"
#include "client/text/hash_utility.h"
#include "client/text/string.h"
#include "platform/drive_recording.h"
#include "platform/drives.h"
#include "platform/files.h"

namespace tvkctl {
namespace {

using TVK::String;
using Rows = std::vector<std::vector<std::wstring>>;
using Listings = std::vector<platform::DriveListing>;

/// Of what the system lists. As the records have it, but where the drive itself tells another one: NVMe on Windows,
/// disks behind bridges.
std::wstring SerialHash(const platform::DriveListing& drive) {
  if (drive.serial_number.empty()) return {};
  return TVK::HashUtility::HashSerialNumber(String::UTF8ToUTF16(drive.serial_number));
}

Json::Value ToJson(const platform::DriveListing& drive) {
  Json::Value value;
  value["path"] = TVK::HarmlessText(drive.path);
  value["bus"] = std::string(platform::BusName(drive.bus));
  value["bytes"] = Json::UInt64(drive.bytes);
  value["rotating"] = drive.rotating ? Json::Value(*drive.rotating) : Json::Value();
  value["removable"] = drive.removable;
  value["model"] = TVK::HarmlessText(drive.model);
  value["firmware"] = TVK::HarmlessText(drive.firmware_version);
  value["serialHash"] = String::UTF16ToUTF8(SerialHash(drive));
  return value;
}

void WriteJson(const Listings& drives, const DrivesRecord& record, std::ostream& out) {
  Json::Value value;
  for (std::size_t i = 0; i < drives.size(); ++i) {
    Json::Value drive = ToJson(drives[i]);
    if (i < record.drives.size()) {
      drive["recorded"] = Json::objectValue;
      for (const auto& [page, text] : record.drives[i].pages)
        drive["recorded"][std::string(platform::PageFileName(page))] = text;
    }
    value["drives"].append(std::move(drive));
  }
  WriteJsonLine(value, out);
}

void WriteText(const Listings& drives, const DrivesRecord& record, std::ostream& out) {
  Rows rows = {{L"PATH", L"BUS", L"BYTES", L"ROTATING", L"REMOVABLE", L"MODEL", L"FIRMWARE", L"SERIAL HASH"}};
  const auto yes = [](bool is) { return is ? L"yes" : L"no"; };
  for (const platform::DriveListing& drive : drives) {
    rows.push_back({String::UTF8ToUTF16(drive.path), String::UTF8ToUTF16(std::string(platform::BusName(drive.bus))),
                    std::to_wstring(drive.bytes), drive.rotating ? yes(*drive.rotating) : L"", yes(drive.removable),
                    String::UTF8ToUTF16(drive.model), String::UTF8ToUTF16(drive.firmware_version), SerialHash(drive)});
  }
  WriteColumns(rows, out);
  if (record.drives.empty()) return;
  out << '\n';
  rows = {{L"PATH", L"PAGE", L"RECORDED"}};
  for (std::size_t i = 0; i < record.drives.size(); ++i) {
    const std::wstring path = String::UTF8ToUTF16(drives[i].path);
    for (const auto& [page, text] : record.drives[i].pages)
      rows.push_back({path, String::UTF8ToUTF16(std::string(platform::PageFileName(page))), String::UTF8ToUTF16(text)});
    if (record.drives[i].pages.empty()) rows.push_back({path, L"", L"has no pages"});
  }
  WriteColumns(rows, out);
}

}  // namespace

int RunInspectDrives(const DrivesOptions& options, platform::Machine& machine, std::ostream& out,
                     std::ostream& errors) {
  const bool is_recorded = !options.record_folder.empty();
  std::error_code failure;
  if (is_recorded && std::filesystem::exists(options.record_folder / platform::kDrivesFolder, failure)) {
    errors << "tvkctl: " << platform::PathToUtf8(options.record_folder) << ": has a folder \"drives\" already\n";
    return kExitWrongConfiguration;
  }
  const Listings drives = machine.drives().List();
  if (drives.empty()) {
    errors << "tvkctl: " << options.machine_name << ": nothing tells of its drives\n";
    return kExitFailed;
  }
  DrivesRecord record;
  if (is_recorded) record = RecordDrives(machine.drives(), drives, options.record_folder);
  if (!record.problem.empty()) {
    errors << "tvkctl: " << record.problem << '\n';
    return kExitFailed;
  }
  options.json ? WriteJson(drives, record, out) : WriteText(drives, record, out);
  return kExitOk;
}

}  // namespace tvkctl
