#include "platform/recorded_drives.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "platform/drive_recording.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

/// Nothing when it is no file, longer than `limit` or cannot be read.
std::optional<std::string> ReadBounded(const fs::path& file, std::size_t limit) {
  std::error_code failure;
  if (!fs::is_regular_file(file, failure)) return std::nullopt;
  std::ifstream stream(file, std::ios::binary);
  std::string content(limit + 1, '\0');
  stream.read(content.data(), static_cast<std::streamsize>(content.size()));
  if (stream.bad() || !stream.eof()) return std::nullopt;
  content.resize(static_cast<std::size_t>(stream.gcount()));
  return content;
}

class RecordedDrive final : public Drive {
 public:
  explicit RecordedDrive(fs::path folder) : folder_(std::move(folder)) {}

  DrivePower ReadPower() override { return DrivePower::kAwake; }

  DriveAnswer Read(DrivePage page) override {
    const fs::path file = folder_ / PageFileName(page);
    std::error_code failure;
    if (!fs::exists(file, failure)) return {DriveResult::kNotSupported};
    const auto content = ReadBounded(file, PageSize(page));
    if (!content || content->size() != PageSize(page)) return {DriveResult::kFailed};
    return {.bytes = {content->begin(), content->end()}};
  }

  DriveAnswer Do(DriveAction) override { return {DriveResult::kNotSupported}; }

 private:
  const fs::path folder_;
};

class RecordedDrives final : public Drives {
 public:
  explicit RecordedDrives(fs::path folder) : folder_(std::move(folder)) {}

  std::vector<DriveListing> List() override {
    std::vector<DriveListing> drives;
    for (const auto& [path, found] : Find())
      drives.push_back(found.listing);
    std::ranges::stable_sort(drives, {}, [](const DriveListing& drive) { return drive.path.size(); });
    return drives;
  }

  DriveOpening Open(const DriveListing& drive) override {
    const auto found = Find();
    const auto it = found.find(drive.path);
    if (it == found.end()) return {nullptr, DriveResult::kGone};
    return {std::make_unique<RecordedDrive>(it->second.folder)};
  }

 private:
  struct Found {
    DriveListing listing;
    fs::path folder;
  };

  /// By path.
  std::map<std::string, Found> Find() const {
    constexpr std::size_t kMostDrives = 256;
    std::vector<fs::path> folders;
    std::error_code failure;
    for (fs::directory_iterator entry(folder_, failure), end; !failure && entry != end; entry.increment(failure)) {
      const std::u8string name = entry->path().filename().u8string();
      if (IsDriveFolderName(std::string(name.begin(), name.end()))) folders.push_back(entry->path());
    }
    std::ranges::sort(folders);
    std::map<std::string, Found> drives;
    for (const fs::path& folder : folders) {
      if (drives.size() == kMostDrives) break;
      const auto text = ReadBounded(folder / kDriveTextFile, kDriveTextLimit);
      auto listing = text ? DecodeDriveText(*text) : std::nullopt;
      if (listing) drives.emplace(listing->path, Found{*listing, folder});
    }
    return drives;
  }

  const fs::path folder_;
};

}  // namespace

std::unique_ptr<Drives> MakeRecordedDrives(fs::path folder) {
  return std::make_unique<RecordedDrives>(std::move(folder));
}

}  // namespace platform
