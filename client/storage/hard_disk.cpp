#include "client/storage/hard_disk.h"

#include <utility>

#include "client/storage/ata_identify.h"
#include "client/storage/nvme_controller.h"
#include "client/text/hash_utility.h"
#include "client/text/string.h"

namespace StorageCollector {
namespace {

using platform::Drive;
using platform::DriveAnswer;
using platform::DriveBus;
using platform::DrivePage;
using platform::DriveResult;

// What is asked for, in the words of the log.
constexpr wchar_t kHealth[] = L"its health";
constexpr wchar_t kSelfTestLog[] = L"its self-test log";
constexpr wchar_t kIdentity[] = L"its identity";

Silence SilenceOf(DriveResult result) {
  switch (result) {
    case DriveResult::kDone:
      return Silence::kNone;
    case DriveResult::kNoRight:
      return Silence::kNoRight;
    case DriveResult::kNotSupported:
      return Silence::kNotSupported;
    case DriveResult::kRefused:
      return Silence::kRefused;
    case DriveResult::kTimedOut:
      return Silence::kHung;
    case DriveResult::kGone:
      return Silence::kGone;
    case DriveResult::kFailed:
      break;
  }
  return Silence::kFailed;
}

/// What `decode` makes of a page.
template <typename Content, typename Decoder>
Reading<Content> ReadPage(Drive& drive, DrivePage page, Decoder decode) {
  const DriveAnswer answer = drive.Read(page);
  if (answer.result != DriveResult::kDone) return {{}, SilenceOf(answer.result), answer.error};
  std::optional<Content> content = decode(answer.bytes);
  if (!content) return {{}, Silence::kDamaged};
  return {std::move(content)};
}

std::wstring Wide(const std::string& text) {
  return TVK::String::UTF8ToUTF16(text);
}

DriveIdentity OfListing(const platform::DriveListing& listing) {
  return {.model = Wide(listing.model),
          .serial_number = Wide(listing.serial_number),
          .firmware_version = Wide(listing.firmware_version),
          .rotating = listing.rotating,
          .is_ata = listing.bus == DriveBus::kAta,
          // Until it says otherwise: every drive of the last decades does.
          .smart_supported = listing.bus == DriveBus::kNvme || listing.bus == DriveBus::kAta};
}

/// What the drive says itself goes before what the system says of it.
template <typename Texts>
void Prefer(DriveIdentity& identity, const Texts& own) {
  const auto prefer = [](std::wstring& text, const std::string& told) {
    if (!told.empty()) text = Wide(told);
  };
  prefer(identity.model, own.model);
  prefer(identity.serial_number, own.serial_number);
  prefer(identity.firmware_version, own.firmware_version);
}

Reading<DriveIdentity> ReadIdentity(Drive& drive, const platform::DriveListing& listing) {
  DriveIdentity identity = OfListing(listing);
  if (listing.bus == DriveBus::kNvme) {
    const auto own = ReadPage<TVK::NvmeIdentity>(drive, DrivePage::kNvmeController, TVK::DecodeNvmeController);
    if (!own.content) return {{}, own.silence, own.error};
    Prefer(identity, *own.content);
    return {identity};
  }
  const auto own = ReadPage<TVK::AtaIdentity>(drive, DrivePage::kAtaIdentify, TVK::DecodeAtaIdentify);
  if (!own.content) return {{}, own.silence, own.error};
  Prefer(identity, *own.content);
  if (own.content->rotating) identity.rotating = own.content->rotating;
  identity.is_ata = true;
  identity.smart_supported = own.content->smart_supported;
  return {identity};
}

/// Whether what the system knows may be the bridge's, in which the disk is exchanged without the system's notice.
bool IsBridged(DriveBus bus) {
  return bus == DriveBus::kUsb || bus == DriveBus::kScsi;
}

/// Every NVMe drive knows the question, so that one which is said not to is asked again: Windows answers so, too, where
/// a command failed in passing, and lists another serial number than the drive's own.
bool MakesNoSense(Silence silence) {
  return silence == Silence::kDamaged || silence == Silence::kRefused || silence == Silence::kNotSupported;
}

std::wstring BusText(DriveBus bus) {
  switch (bus) {
    case DriveBus::kNvme:
      return L"NVMe";
    case DriveBus::kAta:
      return L"SATA";
    case DriveBus::kUsb:
      return L"USB";
    case DriveBus::kScsi:
      return L"SCSI";
    case DriveBus::kCard:
      return L"Card";
    case DriveBus::kOther:
      break;
  }
  return L"Other";
}

}  // namespace

HardDisk::HardDisk(platform::Drives& drives, platform::DriveListing listing, std::shared_ptr<DriveLane> lane)
    : drives_(&drives), listing_(std::move(listing)), lane_(std::move(lane)) {}

template <typename Content>
Asked<Content> HardDisk::Ask(const std::wstring& what, std::function<Reading<Content>(platform::Drive&)> work,
                             std::chrono::milliseconds limit) const {
  // Its own, since it may come back when nobody waits for it any more.
  const auto reading = std::make_shared<Reading<Content>>();
  auto session = [reading, owned = drives_->weak_from_this().lock(), drives = drives_, listing = listing_,
                  work = std::move(work)] {
    const platform::DriveOpening opening = drives->Open(listing);
    if (opening.drive == nullptr) {
      *reading = {{}, SilenceOf(opening.result), opening.error};
    } else if (opening.drive->ReadPower() == platform::DrivePower::kAsleep) {
      *reading = {{}, Silence::kAsleep};
    } else {
      *reading = work(*opening.drive);
    }
  };
  return [reading, what, lane = lane_, wait = lane_->Begin(std::move(session), limit)](platform::Waitable* stop) {
    const Silence silence = wait(stop);
    Reading<Content> result = silence == Silence::kNone ? std::move(*reading) : Reading<Content>{{}, silence};
    // The system gave up on a command: the next one would take as long.
    if (silence == Silence::kNone && result.silence == Silence::kHung) lane->Rest();
    if (!what.empty()) lane->Note(what, result.silence, result.error);
    return result;
  };
}

std::function<void(platform::Waitable* stop)> HardDisk::AskIdentity() const {
  const std::optional<DriveIdentity> known = lane_->identity();
  if (known && !known->assumed && !(known->is_ata && IsBridged(listing_.bus))) return nullptr;
  if (listing_.bus == DriveBus::kCard || listing_.bus == DriveBus::kOther) {
    lane_->set_identity(OfListing(listing_));  // they speak neither
    return nullptr;
  }
  auto asked =
      Ask<DriveIdentity>(kIdentity, [listing = listing_](Drive& drive) { return ReadIdentity(drive, listing); });
  return [lane = lane_, listing = listing_, known, asked = std::move(asked)](platform::Waitable* stop) {
    const auto told = asked(stop);
    if (told.content) {
      lane->set_identity(*told.content);
    } else if (known) {
      // Behind a bridge it may be another disk by now, which answers other questions. What is not asked stays who it
      // is.
      const bool was_asked = told.silence == Silence::kNotSupported || told.silence == Silence::kRefused ||
                             told.silence == Silence::kDamaged || told.silence == Silence::kFailed;
      if (was_asked && !known->assumed) lane->set_identity(std::nullopt);
    } else if (told.silence == Silence::kNoRight ||
               (told.silence == Silence::kNotSupported && listing.bus != DriveBus::kNvme)) {
      lane->set_identity(OfListing(listing));  // it will not tell any more than that
    } else if (MakesNoSense(told.silence) && lane->TakeSenselessIdentity()) {
      DriveIdentity identity = OfListing(listing);
      identity.assumed = true;
      lane->set_identity(std::move(identity));
    }
  };
}

bool HardDisk::identified() const {
  return lane_->identity().has_value();
}

DriveIdentity HardDisk::identity() const {
  return lane_->identity().value_or(OfListing(listing_));
}

std::wstring HardDisk::getDrivePath() const {
  return Wide(listing_.path);
}

std::wstring HardDisk::getDriveType() const {
  const std::wstring bus = BusText(listing_.bus);
  const auto rotating = listing_.bus == DriveBus::kNvme ? std::optional(false) : identity().rotating;
  if (!rotating || listing_.bus == DriveBus::kCard) return bus;
  return bus + (*rotating ? L" HDD" : L" SSD");
}

std::wstring HardDisk::getProductName() const {
  return identity().model;
}

std::wstring HardDisk::getSerialNumber() const {
  return identity().serial_number;
}

std::wstring HardDisk::getFirmwareVersion() const {
  return identity().firmware_version;
}

std::wstring HardDisk::getHashedSerialNumber() const {
  const std::wstring serial_number = getSerialNumber();
  return serial_number.empty() ? std::wstring() : TVK::HashUtility::HashSerialNumber(serial_number);
}

DriveKind HardDisk::kind() const {
  if (listing_.bus == DriveBus::kNvme) return DriveKind::kNvme;
  const DriveIdentity own = identity();
  if (!own.is_ata) return DriveKind::kOther;
  const bool ssd = listing_.bus == DriveBus::kAta && own.rotating == std::optional(false);
  return ssd ? DriveKind::kSataSsd : DriveKind::kAta;
}

bool HardDisk::supports_smart() const {
  return identity().smart_supported;
}

Asked<TVK::NvmeHealth> HardDisk::AskNvmeHealth() const {
  return Ask<TVK::NvmeHealth>(kHealth, [](Drive& drive) {
    return ReadPage<TVK::NvmeHealth>(drive, DrivePage::kNvmeHealth, TVK::DecodeNvmeHealth);
  });
}

Asked<TVK::AtaSmart> HardDisk::AskAtaSmart() const {
  return Ask<TVK::AtaSmart>(kHealth, [](Drive& drive) {
    return ReadPage<TVK::AtaSmart>(drive, DrivePage::kAtaSmartValues, [&](std::span<const std::uint8_t> values) {
      return TVK::DecodeAtaSmart(values, drive.Read(DrivePage::kAtaSmartThresholds).bytes);
    });
  });
}

Reading<TVK::NvmeSelfTestLog> HardDisk::ReadNvmeSelfTestLog(platform::Waitable* stop) const {
  return Ask<TVK::NvmeSelfTestLog>(kSelfTestLog, [](Drive& drive) {
    return ReadPage<TVK::NvmeSelfTestLog>(drive, DrivePage::kNvmeSelfTestLog, TVK::DecodeNvmeSelfTestLog);
  })(stop);
}

Reading<TVK::AtaSelfTestLog> HardDisk::ReadAtaSelfTestLog(platform::Waitable* stop) const {
  return Ask<TVK::AtaSelfTestLog>(kSelfTestLog, [](Drive& drive) {
    return ReadPage<TVK::AtaSelfTestLog>(drive, DrivePage::kAtaSelfTestLog, TVK::DecodeAtaSelfTestLog);
  })(stop);
}

Reading<bool> HardDisk::ReadNvmeSelfTestSupport(platform::Waitable* stop) const {
  return Ask<bool>(kIdentity, [](Drive& drive) {
    return ReadPage<bool>(drive, DrivePage::kNvmeController, [](std::span<const std::uint8_t> data) {
      const auto controller = TVK::DecodeNvmeController(data);
      return controller ? std::optional(controller->self_test_supported) : std::nullopt;
    });
  })(stop);
}

Reading<bool> HardDisk::Do(platform::DriveAction action, platform::Waitable* stop,
                           std::chrono::milliseconds limit) const {
  return Ask<bool>(
      {},
      [action](Drive& drive) -> Reading<bool> {
        const DriveAnswer answer = drive.Do(action);
        if (answer.result == DriveResult::kDone) return {true};
        return {{}, SilenceOf(answer.result), answer.error};
      },
      limit)(stop);
}

}  // namespace StorageCollector
