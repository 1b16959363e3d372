#include "platform/linux/drive_device.h"

#include <fcntl.h>
#include <linux/nvme_ioctl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

#include "platform/linux/unique_fd.h"

namespace platform {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kLimitMs =
    static_cast<std::uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(kDriveCommandLimit).count());

class LinuxDriveDevice final : public DriveDevice {
 public:
  explicit LinuxDriveDevice(UniqueFd fd) : fd_(std::move(fd)) {}

  DeviceReply SendScsi(std::span<const std::uint8_t> command, std::span<std::uint8_t> in) override {
    std::uint8_t sense[252] = {};  // the longest that sense data are (SPC-5, 4.4)
    std::uint8_t block[16] = {};   // the kernel wants it writable
    std::copy(command.begin(), command.end(), block);
    sg_io_hdr_t header{};
    header.interface_id = 'S';
    header.dxfer_direction = in.empty() ? SG_DXFER_NONE : SG_DXFER_FROM_DEV;
    header.cmdp = block;
    header.cmd_len = static_cast<unsigned char>(command.size());
    header.sbp = sense;
    header.mx_sb_len = sizeof sense;
    header.dxferp = in.data();
    header.dxfer_len = static_cast<unsigned>(in.size());
    header.timeout = kLimitMs;

    const Clock::time_point begin = Clock::now();
    DeviceReply reply;
    if (::ioctl(fd_.get(), SG_IO, &header) != 0) {
      reply.error = errno;
      reply.timed_out = TookAll(begin);
      return reply;
    }
    // What the kernel's adapter drivers say of the way to the drive (its scsi/scsi_status.h).
    constexpr unsigned kNoConnect = 0x01;
    constexpr unsigned kTimeOut = 0x03;
    constexpr unsigned kBadTarget = 0x04;
    reply.status = header.status;
    reply.sense.assign(sense, sense + std::min<std::size_t>(header.sb_len_wr, sizeof sense));
    reply.failed = header.host_status != 0;
    reply.gone = header.host_status == kNoConnect || header.host_status == kBadTarget;
    // The error handling of ATA drivers ends a command that got no answer as one that the drive aborted.
    reply.timed_out = header.host_status == kTimeOut || ((reply.failed || reply.status != 0) && TookAll(begin));
    const int missing = header.resid > 0 ? header.resid : 0;
    reply.bytes = in.size() - std::min<std::size_t>(static_cast<std::size_t>(missing), in.size());
    return reply;
  }

  DeviceReply SendNvme(const NvmeCommand& command, std::span<std::uint8_t> in) override {
    nvme_admin_cmd admin{};
    admin.opcode = command.opcode;
    admin.nsid = command.namespace_id;
    admin.cdw10 = command.dword10;
    admin.addr = reinterpret_cast<std::uintptr_t>(in.data());
    admin.data_len = static_cast<std::uint32_t>(in.size());
    admin.timeout_ms = kLimitMs;

    const Clock::time_point begin = Clock::now();
    const int status = ::ioctl(fd_.get(), NVME_IOCTL_ADMIN_CMD, &admin);
    DeviceReply reply;
    if (status < 0) {
      reply.error = errno;
    } else {
      reply.status = static_cast<std::uint32_t>(status);
      reply.bytes = in.size();
    }
    // A command that is called back for its time ends as interrupted, or with a status of the host's own.
    reply.timed_out = status != 0 && TookAll(begin);
    return reply;
  }

 private:
  static bool TookAll(Clock::time_point begin) { return Clock::now() - begin >= kDriveCommandLimit; }

  const UniqueFd fd_;
};

}  // namespace

DeviceOpening OpenDriveDevice(const std::string& path) {
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!fd) return {nullptr, errno};
  return {std::make_unique<LinuxDriveDevice>(std::move(fd))};
}

DriveResult ResultOfErrno(int error) {
  switch (error) {
    case EACCES:
    case EPERM:
    case ENOENT:  // the kernel knows the drive: what is missing is its file, as in a sandbox with a /dev of its own
      return DriveResult::kNoRight;
    case ENOTTY:
    case EINVAL:
    case EOPNOTSUPP:
      return DriveResult::kNotSupported;
    case ENODEV:
    case ENXIO:
      return DriveResult::kGone;
    case ETIMEDOUT:
      return DriveResult::kTimedOut;
    default:
      return DriveResult::kFailed;
  }
}

}  // namespace platform
