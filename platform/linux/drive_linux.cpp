#include "platform/linux/drive_linux.h"

#include <cerrno>
#include <optional>
#include <utility>

#include "platform/ata_command.h"
#include "platform/ata_pass_through.h"
#include "platform/nvme_command.h"

namespace platform {
namespace {

class LinuxDrive final : public Drive {
 public:
  LinuxDrive(DriveSpeech speech, std::string path, DeviceOpener open, std::function<bool()> is_suspended)
      : speech_(speech), path_(std::move(path)), open_(std::move(open)), is_suspended_(std::move(is_suspended)) {}

  /// errno, or 0.
  int OpenUnlessAsleep() { return speech_ == DriveSpeech::kNone || is_suspended_() ? 0 : OpenDevice(); }

  DrivePower ReadPower() override {
    if (is_suspended_()) return DrivePower::kAsleep;
    // An NVMe drive rests and comes back by itself, within what a command takes.
    if (speech_ == DriveSpeech::kNvme) return DrivePower::kAwake;
    if (speech_ == DriveSpeech::kNone || OpenDevice() != 0) return DrivePower::kUnknown;
    const AtaReply reply = AskAta(AtaCheckPowerMode(), {});
    return reply.registers ? AtaPowerOf(*reply.registers) : DrivePower::kUnknown;
  }

  DriveAnswer Read(DrivePage page) override {
    if (const auto command = AtaCommandOf(page)) return Ata(*command, kAtaSectorSize);
    return Nvme(NvmeCommandOf(page));
  }

  DriveAnswer Do(DriveAction action) override {
    if (const auto command = AtaCommandOf(action)) return Ata(*command, 0);
    return Nvme(NvmeCommandOf(action));
  }

 private:
  struct AtaReply {
    DriveAnswer answer;
    std::optional<AtaRegisters> registers;
  };

  int OpenDevice() {
    if (device_) return 0;
    DeviceOpening opening = open_(path_);
    device_ = std::move(opening.device);
    return device_ ? 0 : opening.error;
  }

  static DriveAnswer Failure(int error) { return {ResultOfErrno(error), static_cast<std::uint32_t>(error)}; }

  /// Nothing when there is a reply of the drive.
  static std::optional<DriveAnswer> FailureOnTheWay(const DeviceReply& reply) {
    if (reply.gone) return Failure(ENODEV);
    if (reply.timed_out) return Failure(ETIMEDOUT);
    if (reply.error != 0) return Failure(reply.error);
    if (reply.failed) return Failure(EIO);
    return std::nullopt;
  }

  DriveAnswer Ata(const AtaRegisters& command, std::size_t size) {
    if (speech_ != DriveSpeech::kAta) return {DriveResult::kNotSupported};
    if (const int error = OpenDevice(); error != 0) return Failure(error);
    std::vector<std::uint8_t> bytes(size);
    DriveAnswer answer = AskAta(command, bytes).answer;
    if (answer.result == DriveResult::kDone) answer.bytes = std::move(bytes);
    return answer;
  }

  AtaReply AskAta(const AtaRegisters& command, std::span<std::uint8_t> in) {
    constexpr int kMostTries = 4;  // each way of asking, and once more after news
    const AtaTransfer transfer = in.empty() ? AtaTransfer::kNone : AtaTransfer::kOneSector;
    const auto long_form = AtaPassThrough16(command, transfer);
    const auto short_form = AtaPassThrough12(command, transfer);
    bool by_short_form = wants_short_form_;
    AtaReply result;
    for (int tries = 0; tries < kMostTries; ++tries) {
      const std::span<const std::uint8_t> block =
          by_short_form ? std::span<const std::uint8_t>(short_form) : std::span<const std::uint8_t>(long_form);
      const DeviceReply reply = device_->SendScsi(block, in);
      if (const auto failure = FailureOnTheWay(reply)) return {*failure, {}};
      AtaPassThroughOutcome outcome =
          ReadAtaPassThrough(static_cast<std::uint8_t>(reply.status), DecodeSense(reply.sense));
      if (outcome.answer.result == DriveResult::kDone && reply.bytes < in.size()) return {Failure(EIO), {}};
      if (outcome.answer.result == DriveResult::kFailed) outcome.answer.error = EIO;
      result = {outcome.answer, outcome.registers};
      if (outcome.is_unknown_command && !by_short_form) {
        by_short_form = true;
      } else if (!outcome.has_other_news) {
        // Whoever answered it in the short form is asked so from now on.
        if (!outcome.is_unknown_command) wants_short_form_ = by_short_form;
        break;
      }
    }
    return result;
  }

  DriveAnswer Nvme(const std::optional<NvmeCommand>& command) {
    if (speech_ != DriveSpeech::kNvme || !command) return {DriveResult::kNotSupported};
    if (const int error = OpenDevice(); error != 0) return Failure(error);
    std::vector<std::uint8_t> bytes(command->bytes);
    const DeviceReply reply = device_->SendNvme(*command, bytes);
    if (const auto failure = FailureOnTheWay(reply)) return *failure;
    DriveAnswer answer = NvmeOutcome(reply.status);
    if (answer.result == DriveResult::kDone) answer.bytes = std::move(bytes);
    return answer;
  }

  const DriveSpeech speech_;
  const std::string path_;
  const DeviceOpener open_;
  const std::function<bool()> is_suspended_;
  std::unique_ptr<DriveDevice> device_;  ///< Null until it is needed.
  bool wants_short_form_ = false;
};

}  // namespace

DriveOpening OpenDrive(DriveSpeech speech, const std::string& path, DeviceOpener open,
                       std::function<bool()> is_suspended) {
  auto drive = std::make_unique<LinuxDrive>(speech, path, std::move(open), std::move(is_suspended));
  const int error = drive->OpenUnlessAsleep();
  if (error != 0) return {nullptr, ResultOfErrno(error), static_cast<std::uint32_t>(error)};
  return {std::move(drive)};
}

}  // namespace platform
