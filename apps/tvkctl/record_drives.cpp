#include "apps/tvkctl/record_drives.h"

#include <fstream>
#include <map>
#include <set>
#include <string_view>

#include "platform/drive_blanking.h"
#include "platform/drive_recording.h"
#include "platform/files.h"

namespace tvkctl {
namespace {

using platform::DriveResult;

std::string WhyMissing(DriveResult result, std::uint32_t error) {
  const auto with_error = [error](std::string text) {
    return error == 0 ? text : text + " (error " + std::to_string(error) + ')';
  };
  switch (result) {
    case DriveResult::kNoRight:
      return "no right";
    case DriveResult::kNotSupported:
      return "not supported";
    case DriveResult::kRefused:
      return with_error("refused");
    case DriveResult::kTimedOut:
      return "no answer in time";
    case DriveResult::kGone:
      return "the drive is gone";
    case DriveResult::kDone:
    case DriveResult::kFailed:
      break;
  }
  return with_error("failed");
}

struct Asked {
  platform::DriveRecording recording;
  RecordedPages pages;
};

Asked Ask(platform::Drives& drives, const platform::DriveListing& listing) {
  Asked asked{{.listing = listing}, {}};
  const std::vector<platform::DrivePage> pages = platform::PagesOf(listing.bus);
  const platform::DriveOpening opening = drives.Open(listing);
  const bool asleep = opening.drive != nullptr && opening.drive->ReadPower() == platform::DrivePower::kAsleep;
  for (const platform::DrivePage page : pages) {
    std::string text = "recorded";
    if (opening.drive == nullptr) {
      text = WhyMissing(opening.result, opening.error);
    } else if (asleep) {
      text = "the drive is asleep";
    } else {
      platform::DriveAnswer answer = opening.drive->Read(page);
      if (answer.result == DriveResult::kDone && answer.bytes.size() == platform::PageSize(page)) {
        asked.recording.pages[page] = std::move(answer.bytes);
      } else {
        text = WhyMissing(answer.result, answer.error);
      }
    }
    asked.pages.pages.emplace_back(page, std::move(text));
  }
  return asked;
}

/// A name for each drive; those of one serial number, as the namespaces of one NVMe drive, get the same.
class Names {
 public:
  std::string NameFor(const std::string& serial_number) {
    if (serial_number.empty()) return Next();
    std::string& name = names_[serial_number];
    if (name.empty()) name = Next();
    return name;
  }

 private:
  std::string Next() { return "BLANKED-" + std::to_string(++count_); }

  std::map<std::string, std::string> names_;
  int count_ = 0;
};

/// Empty, or what went wrong.
std::string WriteFile(const std::filesystem::path& file, std::string_view content) {
  std::ofstream stream(file, std::ios::binary);
  stream << content;
  stream.close();
  return stream ? std::string() : platform::PathToUtf8(file) + ": cannot be written";
}

std::string WriteRecording(const std::filesystem::path& folder, const platform::DriveRecording& recording) {
  std::error_code failure;
  std::filesystem::create_directories(folder, failure);
  if (failure) return platform::PathToUtf8(folder) + ": " + failure.message();
  std::string problem = WriteFile(folder / platform::kDriveTextFile, platform::EncodeDriveText(recording.listing));
  for (const auto& [page, bytes] : recording.pages) {
    if (!problem.empty()) break;
    problem =
        WriteFile(folder / platform::PageFileName(page), {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  }
  return problem;
}

}  // namespace

DrivesRecord RecordDrives(platform::Drives& drives, const std::vector<platform::DriveListing>& listed,
                          const std::filesystem::path& folder) {
  DrivesRecord record;
  Names names;
  std::set<std::string> folders;
  for (const platform::DriveListing& listing : listed) {
    Asked asked = Ask(drives, listing);
    platform::BlankIdentity(asked.recording, names.NameFor(platform::SerialNumberOf(asked.recording)));
    const std::string first_name = platform::DriveFolderName(listing.path);
    std::string name = first_name;
    for (int count = 2; !folders.insert(name).second; ++count)
      name = first_name.substr(0, 48) + '-' + std::to_string(count);
    record.problem = WriteRecording(folder / platform::kDrivesFolder / name, asked.recording);
    if (!record.problem.empty()) break;
    record.drives.push_back(std::move(asked.pages));
  }
  return record;
}

}  // namespace tvkctl
