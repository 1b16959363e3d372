#include "platform/volumes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <map>

#include "platform/linux/block_device_text.h"
#include "platform/linux/doors_linux.h"
#include "platform/linux/mount_text.h"
#include "platform/linux/unique_fd.h"
#include "platform/text_scan.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

// Nothing where the way to the mount ends elsewhere: below a mount that the service's own sandbox laid above it, say.
std::optional<VolumeSpace> Measure(const Mount& mount) {
  const UniqueFd point(open(mount.point.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct statx status = {};
  if (!point || statx(point.get(), "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_MNT_ID, &status) != 0) return {};
  if ((status.stx_mask & STATX_MNT_ID) == 0 || status.stx_mnt_id != mount.id) return {};
  struct statvfs space = {};
  if (fstatvfs(point.get(), &space) != 0 || space.f_blocks == 0) return {};
  // What the file system has in all: what is in use and free moves with each write, since what it keeps back does.
  const std::uint64_t blocks = space.f_blocks;
  return VolumeSpace{blocks * space.f_frsize, std::min<std::uint64_t>(space.f_bavail, blocks) * space.f_frsize};
}

class LinuxVolumes final : public Volumes {
 public:
  LinuxVolumes(const Sysroot& root, bool measures) : root_(root), measures_(measures) {}

  std::vector<Volume> List() override {
    const std::vector<Mount> mounts = DecodeMountinfo(root_.Read("/proc/self/mountinfo").value_or(""));
    std::vector<Volume> volumes;
    std::map<std::string, std::size_t> known;  // by the device's name
    for (std::size_t i = 0; i < mounts.size(); ++i) {
      const std::string name = DeviceName(mounts[i]);
      const auto device = Resolve(name);
      if (!device || !MayHoldVolume(device->drive)) continue;
      const auto [place, is_new] = known.try_emplace(name, volumes.size());
      if (is_new) volumes.push_back(ReadVolume(mounts[i], name));
      Volume& volume = volumes[place->second];
      if (IsSystemPoint(mounts[i].point)) volume.role = VolumeRole::kSystem;
      if (measures_ && !volume.space && IsReachable(mounts, i)) volume.space = Measure(mounts[i]);
    }
    return volumes;
  }

 private:
  struct Way {
    bool removable = false;
    bool encrypted = false;
  };

  static fs::path Folder(const std::string& name) { return fs::path("/sys/class/block") / name; }

  // Empty when it is on no block device. A file system of several devices names one of them as its source.
  std::string DeviceName(const Mount& mount) const {
    if (!mount.device.starts_with("0:")) {
      return BlockDeviceOfLink(root_.LinkTarget(fs::path("/sys/dev/block") / mount.device), false).name;
    }
    if (mount.type != "btrfs") return {};
    const std::string link = root_.LinkTarget(mount.source);  // of /dev/mapper to ../dm-0
    return fs::path(link.empty() ? mount.source : link).filename().string();
  }

  std::optional<BlockDevice> Resolve(const std::string& name) const {
    if (name.empty()) return std::nullopt;
    BlockDevice device = ReadDevice(name);
    return device.name == name ? std::optional(std::move(device)) : std::nullopt;
  }

  BlockDevice ReadDevice(const std::string& name) const {
    const bool is_partition = !root_.ReadLine(Folder(name) / "partition").empty();
    return BlockDeviceOfLink(root_.LinkTarget(Folder(name)), is_partition);
  }

  Volume ReadVolume(const Mount& mount, const std::string& name) const {
    const Way way = FollowDown(name, 0);
    return {.id = Id(name),
            .role = way.removable ? VolumeRole::kRemovable : VolumeRole::kData,
            .file_system = mount.type,
            .read_only = mount.read_only,
            .encrypted = way.encrypted,
            .errors = CountErrors(mount.type, name)};
  }

  std::string Id(const std::string& name) const {
    const std::string number = root_.ReadLine(Folder(name) / "dev");
    const auto entry = root_.Read("/run/udev/data/b" + number);
    if (std::string id = FileSystemIdOfUdev(entry.value_or("")); !id.empty()) return id;
    const std::string mapping = root_.ReadLine(Folder(name) / "dm/uuid");
    return mapping.empty() ? name : mapping;
  }

  // What the device is made of, through mappings and arrays.
  Way FollowDown(const std::string& name, int depth) const {
    constexpr int kDeepest = 8;  // the system stacks a few; a recorded tree may go in circles
    const std::string link = root_.LinkTarget(Folder(name));
    const std::string drive = ReadDevice(name).drive;
    const fs::path folder = Folder(drive);
    Way way;
    way.removable = BusOfBlockDevice(drive, link) == DriveBus::kUsb || root_.ReadLine(folder / "removable") == "1" ||
                    (drive.starts_with("mmcblk") && root_.ReadLine(folder / "device/type") == "SD");
    way.encrypted = root_.ReadLine(folder / "dm/uuid").starts_with("CRYPT-");
    if (depth == kDeepest) return way;
    for (const std::string& part : root_.FolderNames(folder / "slaves")) {
      const Way below = FollowDown(part, depth + 1);
      way.removable |= below.removable;
      way.encrypted |= below.encrypted;
    }
    return way;
  }

  std::optional<std::uint64_t> CountErrors(const std::string& type, const std::string& name) const {
    if (type != "btrfs") return ParseNumber(root_.ReadLine(fs::path("/sys/fs") / type / name / "errors_count"));
    const fs::path all = "/sys/fs/btrfs";
    for (const std::string& id : root_.FolderNames(all)) {
      const std::vector<std::string> devices = root_.FolderNames(all / id / "devices");
      if (std::ranges::find(devices, name) == devices.end()) continue;
      std::optional<std::uint64_t> sum;
      for (const std::string& number : root_.FolderNames(all / id / "devinfo")) {
        const auto stats = root_.Read(all / id / "devinfo" / number / "error_stats");
        if (const auto errors = SumOfErrors(stats.value_or(""))) sum = sum.value_or(0) + *errors;
      }
      return sum;
    }
    return std::nullopt;
  }

  const Sysroot root_;
  const bool measures_;
};

}  // namespace

std::unique_ptr<Volumes> MakeVolumes(const Sysroot& root, bool measures) {
  return std::make_unique<LinuxVolumes>(root, measures);
}

}  // namespace platform
