// The door to drives before a driver that answers as the test scripts it (driver_stand_in.cpp), in a prefix of its own.
#include "platform/drives.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <future>
#include <string>
#include <vector>

#include "platform/ata_command.h"
#include "platform/little_endian.h"
#include "platform/storage_query.h"
#include "platform/windows/doors_windows.h"
#include "platform/windows/scripted_driver.h"

#include <ntddscsi.h>

namespace platform {
namespace {

using windows::ScriptedDriver;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kProtocolCommand = 0x2DD3C0;  // IOCTL_STORAGE_PROTOCOL_COMMAND
constexpr std::uint32_t kController = 49;             // StorageAdapterProtocolSpecificProperty
constexpr std::uint32_t kNamespace = 50;              // StorageDeviceProtocolSpecificProperty

// NTSTATUS, and the errors that they become.
constexpr std::uint32_t kInvalidRequest = 0xC0000010;      // 1
constexpr std::uint32_t kNotSupported = 0xC00000BB;        // 50
constexpr std::uint32_t kIoError = 0xC0000185;             // 1117
constexpr std::uint32_t kAccessDenied = 0xC0000022;        // 5
constexpr std::uint32_t kTimeout = 0xC00000B5;             // 121
constexpr std::uint32_t kDeviceNotConnected = 0xC000009D;  // 1167

Bytes Descriptor(STORAGE_BUS_TYPE bus, const std::string& model, const std::string& serial) {
  STORAGE_DEVICE_DESCRIPTOR head{};
  head.Version = sizeof(head);
  head.BusType = bus;
  head.ProductIdOffset = sizeof(head);
  head.SerialNumberOffset = static_cast<DWORD>(sizeof(head) + model.size() + 1);
  const std::string texts = model + '\0' + serial + '\0';
  head.Size = static_cast<DWORD>(sizeof(head) + texts.size());
  Bytes bytes(head.Size);
  std::memcpy(bytes.data(), &head, sizeof(head));
  std::ranges::copy(texts, bytes.begin() + sizeof(head));
  return bytes;
}

// Of a page: bytes that tell their place, and its number as long as that is in range.
Bytes Page(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<std::uint8_t>(i % 251);
  return bytes;
}

Bytes NvmeReply(DrivePage page) {
  Bytes reply = NvmePageRequest(page, NvmeScope::kController);
  PutLittleEndian(reply, 0, std::uint32_t{48});
  PutLittleEndian(reply, 4, std::uint32_t{48});
  std::ranges::copy(Page(reply.size() - 48), reply.begin() + 48);
  return reply;
}

Bytes AtaReplyBytes(std::uint8_t error, std::uint8_t status, bool sector, std::uint8_t count = 0) {
  Bytes reply = AtaRequest({error, count, 0, 0, 0, 0, status}, sector, std::chrono::seconds(1));
  if (sector) std::ranges::copy(Page(512), reply.begin() + 48);
  return reply;
}

class DrivesWindows : public testing::Test {
 protected:
  static void SetUpTestSuite() { stand_in_ = new ScriptedDriver(false); }
  static void TearDownTestSuite() { delete std::exchange(stand_in_, nullptr); }

  DrivesWindows() {
    for (unsigned number = 0; number < 10; ++number)
      Unname(number);  // those of the system
    AddDrive(0, 0, Descriptor(BusTypeNvme, "Contoso 1TB", "0025_38B1"));
    AddDrive(1, 2, Descriptor(BusTypeSata, "Litware Disk", "LW-1"));
  }
  ~DrivesWindows() override { driver().Tell(driver_stand_in::kReset); }

  ScriptedDriver& driver() { return *stand_in_; }
  void Unname(unsigned name) { driver().Unname(L"PhysicalDrive" + std::to_wstring(name)); }
  /// PhysicalDrive`name`.
  void AddDrive(unsigned drive, unsigned name, const Bytes& descriptor) {
    driver().Name(drive, L"PhysicalDrive" + std::to_wstring(name));
    driver().Answer(drive, IOCTL_STORAGE_QUERY_PROPERTY, StorageDeviceProperty, descriptor);
  }
  void AnswerNvme(std::uint32_t scope, const Bytes& bytes, std::uint32_t status = 0) {
    driver().Answer(0, IOCTL_STORAGE_QUERY_PROPERTY, scope, bytes, status);
  }
  /// The drive at that place of the list; the test fails without one.
  std::unique_ptr<Drive> Open(std::size_t place) {
    const auto list = drives_->List();
    if (place >= list.size()) throw std::runtime_error("there is no such drive");
    DriveOpening opening = drives_->Open(list[place]);
    if (opening.drive == nullptr) throw std::runtime_error("it does not open");
    return std::move(opening.drive);
  }

  static inline ScriptedDriver* stand_in_ = nullptr;
  const std::unique_ptr<Drives> drives_ = windows::MakeDrives();
};

void Expect(const DriveAnswer& answer, DriveResult result, std::uint32_t error = 0, const Bytes& bytes = {}) {
  EXPECT_EQ(answer.result, result);
  EXPECT_EQ(answer.error, error);
  EXPECT_EQ(answer.bytes, bytes);
}

TEST_F(DrivesWindows, AreListedWithTheirGapsAndKnownAgain) {
  DEVICE_SEEK_PENALTY_DESCRIPTOR penalty{sizeof(penalty), sizeof(penalty), TRUE};
  Bytes bytes(sizeof(penalty));
  std::memcpy(bytes.data(), &penalty, sizeof(penalty));
  driver().Answer(1, IOCTL_STORAGE_QUERY_PROPERTY, StorageDeviceSeekPenaltyProperty, bytes);
  bytes.assign(sizeof(DISK_GEOMETRY_EX), 0);
  PutLittleEndian(bytes, offsetof(DISK_GEOMETRY_EX, DiskSize), std::uint64_t{2'000'000'000'000});
  driver().Answer(1, IOCTL_DISK_GET_DRIVE_GEOMETRY_EX, driver_stand_in::kAnySelector, bytes);
  const auto list = drives_->List();
  EXPECT_EQ(list, (std::vector<DriveListing>{{.path = R"(\\.\PhysicalDrive0)",
                                              .bus = DriveBus::kNvme,
                                              .model = "Contoso 1TB",
                                              .serial_number = "0025_38B1"},
                                             {.path = R"(\\.\PhysicalDrive2)",
                                              .bus = DriveBus::kAta,
                                              .model = "Litware Disk",
                                              .serial_number = "LW-1",
                                              .bytes = 2'000'000'000'000,
                                              .rotating = true}}));
  // A drive that names no bus is on its adapter's.
  AddDrive(3, 7, Descriptor(BusTypeUnknown, "Other Disk", "O-1"));
  bytes.assign(sizeof(STORAGE_ADAPTER_DESCRIPTOR), 0);
  bytes[offsetof(STORAGE_ADAPTER_DESCRIPTOR, BusType)] = BusTypeSata;
  driver().Answer(3, IOCTL_STORAGE_QUERY_PROPERTY, StorageAdapterProperty, bytes);
  EXPECT_EQ(drives_->List().back().bus, DriveBus::kAta);
  Unname(7);
  // Another drive gets the number of one that has gone.
  Unname(2);
  EXPECT_EQ(drives_->Open(list[1]).result, DriveResult::kGone);
  AddDrive(2, 2, Descriptor(BusTypeSata, "Litware Disk", "LW-2"));
  EXPECT_EQ(drives_->Open(list[1]).result, DriveResult::kGone);
  EXPECT_NE(drives_->Open(drives_->List()[1]).drive, nullptr);
}

TEST_F(DrivesWindows, NvmePagesNeedNoRightToTheDrive) {
  const auto drive = Open(0);
  Unname(0);  // a second opening fails: Wine would not let a driver refuse one for want of a right
  for (const auto& [page, size] : {std::pair{DrivePage::kNvmeController, 4096}, std::pair{DrivePage::kNvmeHealth, 512},
                                   std::pair{DrivePage::kNvmeSelfTestLog, 564}}) {
    AnswerNvme(kController, NvmeReply(page));
    Expect(drive->Read(page), DriveResult::kDone, 0, Page(static_cast<std::size_t>(size)));
    const auto request = driver().LastRequest(0);
    EXPECT_EQ(Bytes(request.bytes, request.bytes + request.size), NvmePageRequest(page, NvmeScope::kController));
    driver().Tell(driver_stand_in::kForget);
  }
  EXPECT_EQ(drive->Do(DriveAction::kNvmeStartShortSelfTest).result, DriveResult::kGone);
  EXPECT_EQ(drive->ReadPower(), DrivePower::kAwake);
}

TEST_F(DrivesWindows, NvmeAnswersThatAreNoneAreToldApart) {
  const auto drive = Open(0);
  Bytes cut = NvmeReply(DrivePage::kNvmeHealth);
  cut.pop_back();
  Bytes lying = NvmeReply(DrivePage::kNvmeHealth);
  PutLittleEndian(lying, 24, std::uint32_t{48});
  struct Row {
    const char* what;
    Bytes bytes;
    std::uint32_t status;
    DriveResult result;
    std::uint32_t error;
  };
  for (const Row& row : {
           Row{"another driver", {}, kInvalidRequest, DriveResult::kNotSupported, 1},
           Row{"another one yet", {}, kIoError, DriveResult::kNotSupported, 1117},
           Row{"not supported", {}, kNotSupported, DriveResult::kNotSupported, 50},
           Row{"without the right", {}, kAccessDenied, DriveResult::kNoRight, 5},
           Row{"too late", {}, kTimeout, DriveResult::kTimedOut, 121},
           Row{"gone", {}, kDeviceNotConnected, DriveResult::kGone, 1167},
           Row{"nothing", {}, 0, DriveResult::kFailed, 13},
           Row{"cut", cut, 0, DriveResult::kFailed, 13},
           Row{"outside", lying, 0, DriveResult::kFailed, 13},
       }) {
    SCOPED_TRACE(row.what);
    for (const std::uint32_t scope : {kController, kNamespace})
      AnswerNvme(scope, row.bytes, row.status);
    Expect(drive->Read(DrivePage::kNvmeHealth), row.result, row.error);
    driver().Tell(driver_stand_in::kForget);
  }
  // Of the namespace where the driver does not tell of the controller.
  AnswerNvme(kController, {}, kInvalidRequest);
  AnswerNvme(kNamespace, NvmeReply(DrivePage::kNvmeHealth));
  Expect(drive->Read(DrivePage::kNvmeHealth), DriveResult::kDone, 0, Page(512));
  Expect(drive->Read(DrivePage::kAtaIdentify), DriveResult::kNotSupported, 50);
}

TEST_F(DrivesWindows, NvmeSelfTestsSucceedByWhatTheDriverReturns) {
  const auto drive = Open(0);
  const Bytes request = NvmeActionRequest(DriveAction::kNvmeStartShortSelfTest, kDriveCommandLimit);
  Bytes refused = request;
  PutLittleEndian(refused, 16, std::uint32_t{2});
  PutLittleEndian(refused, 144 + 12, std::uint32_t{0x11D << 1});
  Bytes done = request;
  PutLittleEndian(done, 16, std::uint32_t{1});
  driver().Answer(0, kProtocolCommand, driver_stand_in::kAnySelector, refused);
  driver().Answer(0, kProtocolCommand, driver_stand_in::kAnySelector, done);
  Expect(drive->Do(DriveAction::kNvmeStartShortSelfTest), DriveResult::kRefused, 0x11D);
  const auto asked = driver().LastRequest(0);
  EXPECT_EQ(Bytes(asked.bytes, asked.bytes + asked.size), request);
  Expect(drive->Do(DriveAction::kNvmeAbortSelfTest), DriveResult::kDone);
}

TEST_F(DrivesWindows, AtaCommandsSucceedByTheDrivesRegisters) {
  const auto drive = Open(1);
  const auto answer = [this](const Bytes& bytes, std::uint32_t status = 0) {
    driver().Answer(1, IOCTL_ATA_PASS_THROUGH, driver_stand_in::kAnySelector, bytes, status);
  };
  answer(AtaReplyBytes(0, 0x50, true));
  answer(AtaReplyBytes(0x04, 0x51, true));
  answer(AtaReplyBytes(0x40, 0x51, true));
  answer(AtaReplyBytes(0, 0x50, false));
  answer(AtaReplyBytes(0x04, 0x51, false));
  answer(AtaReplyBytes(0, 0x50, false, 0xFF));
  answer(AtaReplyBytes(0, 0x50, false, 0x00));
  answer({}, kIoError);
  Expect(drive->Read(DrivePage::kAtaIdentify), DriveResult::kDone, 0, Page(512));
  Expect(drive->Read(DrivePage::kAtaSmartValues), DriveResult::kNotSupported, 0x5104);
  Expect(drive->Read(DrivePage::kAtaSmartValues), DriveResult::kRefused, 0x5140);
  Expect(drive->Do(DriveAction::kAtaStartShortSelfTest), DriveResult::kDone);
  const auto asked = driver().LastRequest(1);
  EXPECT_EQ(Bytes(asked.bytes, asked.bytes + asked.size),
            AtaRequest(*AtaCommandOf(DriveAction::kAtaStartShortSelfTest), false, kDriveCommandLimit));
  Expect(drive->Do(DriveAction::kAtaAbortSelfTest), DriveResult::kNotSupported, 0x5104);
  EXPECT_EQ(drive->ReadPower(), DrivePower::kAwake);
  EXPECT_EQ(drive->ReadPower(), DrivePower::kAsleep);
  EXPECT_EQ(drive->ReadPower(), DrivePower::kUnknown);
}

TEST_F(DrivesWindows, DriversWithoutThePassThroughAreAskedTheOlderWay) {
  const auto drive = Open(1);
  const auto answer = [this](const Bytes& bytes) {
    driver().Answer(1, SMART_RCV_DRIVE_DATA, driver_stand_in::kAnySelector, bytes);
  };
  Bytes reply(16);
  const Bytes page = Page(512);
  reply.insert(reply.end(), page.begin(), page.end());
  answer(reply);
  reply[4] = 1;
  reply[5] = 0x04;
  answer(reply);
  Expect(drive->Read(DrivePage::kAtaSmartValues), DriveResult::kDone, 0, page);
  const auto asked = driver().LastRequest(1);
  EXPECT_EQ(Bytes(asked.bytes, asked.bytes + asked.size), SmartRequest(*AtaCommandOf(DrivePage::kAtaSmartValues)));
  Expect(drive->Read(DrivePage::kAtaSmartThresholds), DriveResult::kNotSupported, 0x0104);
}

TEST_F(DrivesWindows, CommandsDoNotGoToADriveThatCameInsteadOfTheOpenedOne) {
  const auto drive = Open(1);
  driver().Answer(1, IOCTL_STORAGE_GET_DEVICE_NUMBER, driver_stand_in::kAnySelector, {}, kDeviceNotConnected);
  Unname(2);
  AddDrive(2, 2, Descriptor(BusTypeSata, "Litware Disk", "LW-2"));
  driver().Answer(2, IOCTL_ATA_PASS_THROUGH, driver_stand_in::kAnySelector, AtaReplyBytes(0, 0x50, true));
  Expect(drive->Read(DrivePage::kAtaIdentify), DriveResult::kGone, 1167);
}

TEST_F(DrivesWindows, OneThatDoesNotAnswerHoldsUpNoOther) {
  const auto hanging = Open(0);
  const auto other = Open(1);
  driver().Answer(0, IOCTL_STORAGE_QUERY_PROPERTY, kController, {}, kTimeout, true);
  driver().Answer(1, IOCTL_ATA_PASS_THROUGH, driver_stand_in::kAnySelector, AtaReplyBytes(0, 0x50, true));
  auto answer = std::async(std::launch::async, [&] { return hanging->Read(DrivePage::kNvmeHealth); });
  while (driver().LastRequest(0).held == 0) {
    ASSERT_EQ(answer.wait_for(std::chrono::seconds(0)), std::future_status::timeout) << "it was answered";
    SwitchToThread();
  }
  Expect(other->Read(DrivePage::kAtaIdentify), DriveResult::kDone, 0, Page(512));
  driver().Tell(driver_stand_in::kRelease);
  Expect(answer.get(), DriveResult::kTimedOut, 121);
}

}  // namespace
}  // namespace platform
