#include "platform/windows/drive_windows.h"

#include <cstdint>
#include <utility>
#include <vector>

#include "platform/storage_query.h"
#include "platform/windows/driver_request.h"
#include "platform/windows/text.h"

#include <ntddscsi.h>
#include <winioctl.h>

namespace platform::windows {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr DWORD kProtocolCommand =  // IOCTL_STORAGE_PROTOCOL_COMMAND
    CTL_CODE(IOCTL_STORAGE_BASE, 0x04F0, METHOD_BUFFERED, FILE_READ_ACCESS | FILE_WRITE_ACCESS);

class WindowsDrive final : public Drive {
 public:
  WindowsDrive(const DriveListing& listing, UniqueFile file)
      : path_(WideFromUtf8(listing.path)), bus_(listing.bus), file_(std::move(file)) {}

  DrivePower ReadPower() override {
    BOOL on = TRUE;
    const bool told = GetDevicePowerState(file_.get(), &on) != FALSE;
    if (told && !on) return DrivePower::kAsleep;
    // A drive with platters may have sent them to sleep itself.
    if (MayBeAta()) return AskAta(AtaCheckPowerMode(), false).power;
    return told && bus_ == DriveBus::kNvme ? DrivePower::kAwake : DrivePower::kUnknown;
  }

  DriveAnswer Read(DrivePage page) override {
    if (const auto command = AtaCommandOf(page)) return ReadAta(*command);
    // The logs are the controller's; some drivers answer for the namespace alone.
    DriveAnswer answer = ReadNvme(page, NvmeScope::kController);
    if (answer.result == DriveResult::kNotSupported && page != DrivePage::kNvmeController) {
      return ReadNvme(page, NvmeScope::kNamespace);
    }
    return answer;
  }

  DriveAnswer Do(DriveAction action) override {
    if (const auto command = AtaCommandOf(action)) return AskAta(*command, false).answer;
    const Bytes request = NvmeActionRequest(action, kDriveCommandLimit);
    const DriverAnswer answer = Command(kProtocolCommand, request, request.size());
    return answer.error != ERROR_SUCCESS ? WindowsDriveFailure(answer.error) : DecodeNvmeAction(answer.bytes);
  }

 private:
  struct AtaAnswer {
    DriveAnswer answer;
    DrivePower power = DrivePower::kUnknown;  ///< When the registers are those of CHECK POWER MODE.
    bool reached = false;                     ///< The drive itself answered.
  };

  // Adapters for SAS and RAID have ATA drives behind them, too.
  bool MayBeAta() const { return bus_ == DriveBus::kAta || bus_ == DriveBus::kUsb || bus_ == DriveBus::kScsi; }

  // A command, other than a question what the drive is, needs the rights to read and write it.
  DriverAnswer Command(DWORD code, const Bytes& request, std::size_t size) {
    if (!commands_) {
      UniqueFile opened = OpenDrive(path_, GENERIC_READ | GENERIC_WRITE);
      if (!opened) return {GetLastError()};
      // The name may be another drive's by now. It was not, as long as ours is still there afterwards.
      const DriverAnswer here =
          AskDriver(file_.get(), IOCTL_STORAGE_GET_DEVICE_NUMBER, {}, sizeof(STORAGE_DEVICE_NUMBER));
      if (WindowsDriveFailure(here.error).result == DriveResult::kGone) return {here.error};
      commands_ = std::move(opened);
    }
    return AskDriver(commands_.get(), code, request, size);
  }

  AtaAnswer AskAta(const AtaRegisters& command, bool sector) {
    if (bus_ == DriveBus::kNvme) return {{DriveResult::kNotSupported, ERROR_NOT_SUPPORTED}};
    const Bytes request = AtaRequest(command, sector, kDriveCommandLimit);
    const DriverAnswer answer = Command(IOCTL_ATA_PASS_THROUGH, request, request.size());
    if (answer.error != ERROR_SUCCESS) return {WindowsDriveFailure(answer.error)};
    AtaReply reply = DecodeAtaReply(answer.bytes, sector);
    const DrivePower power = reply.registers ? AtaPowerOf(*reply.registers) : DrivePower::kUnknown;
    return {std::move(reply.answer), power, true};
  }

  DriveAnswer ReadAta(const AtaRegisters& command) {
    AtaAnswer ata = AskAta(command, true);
    if (ata.reached || ata.answer.result != DriveResult::kNotSupported || bus_ == DriveBus::kNvme) return ata.answer;
    // Drivers without the pass-through may have the older code, for these commands alone.
    const DriverAnswer answer = Command(SMART_RCV_DRIVE_DATA, SmartRequest(command), kSmartReplySize);
    return answer.error != ERROR_SUCCESS ? WindowsDriveFailure(answer.error) : DecodeSmartReply(answer.bytes);
  }

  DriveAnswer ReadNvme(DrivePage page, NvmeScope scope) {
    const Bytes request = NvmePageRequest(page, scope);
    const DriverAnswer answer = AskDriver(file_.get(), IOCTL_STORAGE_QUERY_PROPERTY, request, request.size());
    return answer.error != ERROR_SUCCESS ? WindowsDriveFailure(answer.error) : DecodeNvmePage(page, answer.bytes);
  }

  const std::wstring path_;
  const DriveBus bus_;
  const UniqueFile file_;  ///< With no access.
  UniqueFile commands_;    ///< With the access that commands need, once one was sent.
};

}  // namespace

UniqueFile OpenDrive(const std::wstring& path, DWORD access) {
  return UniqueFile(
      CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr));
}

std::unique_ptr<Drive> MakeDrive(const DriveListing& listing, UniqueFile file) {
  return std::make_unique<WindowsDrive>(listing, std::move(file));
}

}  // namespace platform::windows
