// Drives and a life of the service for the tests of the drives' monitors.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/log/named_event.h"
#include "client/text/hash_utility.h"
#include "client/text/string.h"
#include "platform/simulated/simulated_drives.h"
#include "testing/drive_sectors.h"
#include "testing/monitor_world.h"

namespace TVK {

inline constexpr char kNvmeSerial[] = "S3CRET-NVME";
inline constexpr char kSsdSerial[] = "S3CRET-SSD";
inline constexpr char kHddSerial[] = "S3CRET-HDD";
inline constexpr char kOtherSerial[] = "S3CRET-2";

/// The three drives of the machine; their serial numbers are to stand nowhere.
inline platform::SimulatedDrive Nvme() {
  return {.listing = {.path = "/dev/nvme0n1",
                      .bus = platform::DriveBus::kNvme,
                      .model = "Nvme",
                      .serial_number = kNvmeSerial},
          .pages = {{platform::DrivePage::kNvmeController, testing_support::Sector(4096)},
                    {platform::DrivePage::kNvmeHealth, testing_support::NvmeHealthPage()}}};
}

inline platform::SimulatedDrive Ata(const char* path, const char* serial, std::uint16_t rate,
                                    const testing_support::Sector& values) {
  return {.listing = {.path = path,
                      .bus = platform::DriveBus::kAta,
                      .model = "Ata",
                      .serial_number = serial,
                      .rotating = rate != 1},
          .pages = {{platform::DrivePage::kAtaIdentify,
                     testing_support::AtaIdentify({.model = "Ata", .serial = serial, .rotation_rate = rate})},
                    {platform::DrivePage::kAtaSmartValues, values},
                    {platform::DrivePage::kAtaSmartThresholds, testing_support::AtaThresholds({{5, 10}, {9, 0}})}}};
}

inline platform::SimulatedDrive Ssd() {
  return Ata("/dev/sda", kSsdSerial, 1, testing_support::AtaValues({{5, 100, 99, 3}, {232, 98, 98, 98}}));
}
inline platform::SimulatedDrive Hdd() {
  return Ata("/dev/sdb", kHddSerial, 7200, testing_support::AtaValues({{5, 100, 100, 0}, {9, 80, 80, 4711}}));
}

/// The hash by which records name a drive.
inline std::wstring KeyOf(const char* serial) {
  return HashUtility::HashSerialNumber(String::UTF8ToUTF16(serial));
}

template <class Monitor>
std::unique_ptr<EventMonitorBase> Make(const MonitorServices& services) {
  return std::make_unique<Monitor>(services);
}

class DriveMonitorsTest : public testing::Test {
 protected:
  DriveMonitorsTest() {
    world_.machine.drives().Set({Nvme(), Ssd(), Hdd()});
    DescribedElsewhere(DatasetRowNamed(L"StorageEvent"));
  }
  ~DriveMonitorsTest() override {
    monitor_.reset();
    for (const std::wstring& text : world_.logs.Lines()) {
      EXPECT_EQ(text.find(L"S3CRET"), text.npos) << String::UTF16ToUTF8(text);
    }
  }

  /// The dataset contexts of another dataset stand.
  void DescribedElsewhere(const DatasetRow& row) {
    described_.push_back(world_.runtime
                             .MakeNamedEvent(DatasetContextEventName(row), platform::EventReset::kManual, true,
                                             platform::EventAccess::kServiceOnly)
                             .event);
  }
  void SetDrive(std::size_t which, platform::SimulatedDrive drive) {
    world_.machine.drives().Change([&](auto& drives) { drives.at(which) = std::move(drive); });
  }
  template <class Monitor>
  void Start(bool consent = true, bool new_device = false) {
    monitor_.reset();
    life_.emplace(world_);
    life_->consent.given = consent;
    life_->manager.first_invocation = new_device;
    monitor_.emplace(world_.runtime, Make<Monitor>(life_->services()));
    world_.runtime.Settle();
  }
  /// Hashed serial numbers of the drives that have the items, in their order.
  std::vector<std::wstring> DrivesOf(const wchar_t* item) {
    std::vector<std::wstring> drives;
    for (const ItemEvent& event : life_->Items(item)) {
      drives.push_back(L"?");
      for (const char* const serial : {kNvmeSerial, kSsdSerial, kHddSerial, kOtherSerial}) {
        DatasetContext context;
        life_->store.GetLastDatasetContextOfDevice(event.dataset_id(), KeyOf(serial), context);
        if (context.dataset_context_id() == event.dataset_context_id()) drives.back() = KeyOf(serial);
      }
    }
    return drives;
  }
  /// The world as it was before anything was recorded.
  void Forget() {
    monitor_.reset();
    life_.reset();
    for (const auto& file : std::filesystem::directory_iterator(world_.folder.path()))
      std::filesystem::remove(file);
    world_.logs.Clear();
  }

  MonitorWorld world_;
  std::vector<std::unique_ptr<platform::Event>> described_;
  std::optional<ServiceLife> life_;
  std::optional<RunningMonitor> monitor_;
};

}  // namespace TVK
