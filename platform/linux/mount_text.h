// Decoders of what the kernel and udev tell of mounted file systems (proc(5); Documentation/ABI/testing/sysfs-fs-*).
// Pure functions; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// One line of /proc/self/mountinfo.
struct Mount {
  std::uint64_t id = 0;    ///< As statx gives it.
  std::string device;      ///< Its numbers, "8:1"; "0:31" of a file system that is not on one block device.
  std::string point;       ///< Where it is mounted, its escapes resolved.
  std::string type;        ///< "ext4".
  std::string source;      ///< What was mounted, "/dev/sda1"; its escapes resolved.
  bool read_only = false;  ///< The file system, not only this mount of it.
};

/// The lines that are whole, in their order: of two mounts at one point the later one lies above.
std::vector<Mount> DecodeMountinfo(std::string_view mountinfo);

/// Whether the way to mounts[index], which must exist, ends there (no other mount lies above it) and leads through no
/// file system that may wait for another machine or a program.
bool IsReachable(const std::vector<Mount>& mounts, std::size_t index);

/// Whether what is mounted at `point` belongs to the operating system.
bool IsSystemPoint(std::string_view point);

struct BlockDevice {
  std::string name;   ///< "sda1".
  std::string drive;  ///< That it is a partition of, "sda"; itself when it is none.
};

/// From what the link /sys/dev/block/8:1 or /sys/class/block/sda1 says, and whether the device has a file "partition",
/// which then lies in its drive's folder. Both names empty when the link names no device.
BlockDevice BlockDeviceOfLink(std::string_view link, bool is_partition);

/// Whether file systems on this drive are volumes of this machine: not in memory, in a file or on another machine, not
/// of an optical drive.
bool MayHoldVolume(std::string_view drive);

/// The property "ID_FS_UUID" of an entry of udev's database (/run/udev/data); empty when there is none.
std::string FileSystemIdOfUdev(std::string_view entry);

/// The sum of the counts of a file "error_stats" of btrfs, one "name count" a line; absent when a line is no such one
/// or there is none.
std::optional<std::uint64_t> SumOfErrors(std::string_view stats);

}  // namespace platform
