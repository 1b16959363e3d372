#include "platform/simulated/simulated_drives.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace platform {
namespace {

std::optional<SimulatedDrive> Find(const SimulatedDrives& drives, const std::string& path) {
  for (SimulatedDrive& drive : drives.Get()) {
    if (drive.listing.path == path) return std::move(drive);
  }
  return std::nullopt;
}

class OpenedDrive final : public Drive {
 public:
  OpenedDrive(const SimulatedDrives& drives, std::string path) : drives_(drives), path_(std::move(path)) {}

  DrivePower ReadPower() override {
    const auto drive = Find(drives_, path_);
    return drive ? drive->power : DrivePower::kUnknown;
  }

  DriveAnswer Read(DrivePage page) override {
    const auto drive = Find(drives_, path_);
    if (!drive) return {DriveResult::kGone};
    if (drive->read) return drive->read(page);
    const auto found = drive->pages.find(page);
    if (found == drive->pages.end()) return {DriveResult::kNotSupported};
    return {.bytes = found->second};
  }

  DriveAnswer Do(DriveAction action) override {
    const auto drive = Find(drives_, path_);
    if (!drive) return {DriveResult::kGone};
    return drive->act ? drive->act(action) : DriveAnswer{DriveResult::kNotSupported};
  }

 private:
  const SimulatedDrives& drives_;
  const std::string path_;
};

}  // namespace

SimulatedDrives::SimulatedDrives()
    : Scripted(
          std::vector<SimulatedDrive>{{.listing = {.path = "/dev/nvme0n1",
                                                   .bus = DriveBus::kNvme,
                                                   .model = "Contoso NVMe 512GB",
                                                   .firmware_version = "1.0",
                                                   .serial_number = "CONTOSO0001",
                                                   .bytes = 512'110'190'592,
                                                   .rotating = false},
                                       .pages = {{DrivePage::kNvmeController, std::vector<std::uint8_t>(4096)}}}}) {}

std::vector<DriveListing> SimulatedDrives::List() {
  std::vector<DriveListing> listings;
  for (const SimulatedDrive& drive : Get())
    listings.push_back(drive.listing);
  return listings;
}

DriveOpening SimulatedDrives::Open(const DriveListing& drive) {
  const auto found = Find(*this, drive.path);
  const DriveResult result = found ? found->opening : DriveResult::kGone;
  if (result != DriveResult::kDone) return {nullptr, result};
  return {std::make_unique<OpenedDrive>(*this, drive.path)};
}

}  // namespace platform
