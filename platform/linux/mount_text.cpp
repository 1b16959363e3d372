#include "platform/linux/mount_text.h"

#include <algorithm>
#include <array>
#include <string>

#include "platform/linux/block_device_text.h"
#include "platform/text_scan.h"

namespace platform {
namespace {

bool IsOctal(char c) {
  return c >= '0' && c <= '7';
}

// The kernel writes blanks, line ends and backslashes as "\040".
std::string Unescape(std::string_view text) {
  std::string plain;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const std::string_view digits = text.substr(at, 4);
    if (digits.size() == 4 && digits[0] == '\\' && std::ranges::all_of(digits.substr(1), IsOctal)) {
      plain += static_cast<char>((digits[1] - '0') * 64 + (digits[2] - '0') * 8 + (digits[3] - '0'));
      at += 3;
    } else {
      plain += text[at];
    }
  }
  return plain;
}

// Whether `option` is one of the comma-separated `options`.
bool Holds(std::string_view options, std::string_view option) {
  while (!options.empty()) {
    const auto end = std::min(options.find(','), options.size());
    if (options.substr(0, end) == option) return true;
    options.remove_prefix(std::min(end + 1, options.size()));
  }
  return false;
}

// "36 35 98:0 /mnt1 /mnt2 rw,noatime master:1 - ext3 /dev/root rw,errors=continue"
std::optional<Mount> DecodeLine(std::string_view line) {
  Mount mount;
  const auto id = ParseNumber(TakeWord(line));
  TakeWord(line);  // the mount that it lies in
  mount.device = TakeWord(line);
  TakeWord(line);  // the folder of the file system that it shows
  mount.point = Unescape(TakeWord(line));
  TakeWord(line);  // options of this mount alone
  // Any number of further fields, then a dash.
  for (std::string_view field = TakeWord(line); field != "-"; field = TakeWord(line)) {
    if (field.empty()) return std::nullopt;
  }
  mount.type = TakeWord(line);
  mount.source = Unescape(TakeWord(line));
  mount.read_only = Holds(TakeWord(line), "ro");
  if (!id || !mount.point.starts_with('/') || mount.type.empty()) return std::nullopt;
  mount.id = *id;
  return mount;
}

bool IsPrefix(std::string_view folder, std::string_view path) {
  return path.starts_with(folder) &&
         (folder.ends_with('/') || path.size() == folder.size() || path[folder.size()] == '/');
}

bool MayWait(const Mount& mount) {
  constexpr std::array<std::string_view, 8> kLocal = {"tmpfs",   "devtmpfs", "ramfs", "rootfs",
                                                      "overlay", "btrfs",    "zfs",   "bcachefs"};
  // A program answers for a file system of its own, and may not.
  if (mount.type.starts_with("fuse")) return true;
  return mount.device.starts_with("0:") && std::ranges::find(kLocal, mount.type) == kLocal.end();
}

}  // namespace

std::vector<Mount> DecodeMountinfo(std::string_view mountinfo) {
  std::vector<Mount> mounts;
  while (!mountinfo.empty()) {
    if (auto mount = DecodeLine(TakeLine(mountinfo))) mounts.push_back(std::move(*mount));
  }
  return mounts;
}

bool IsReachable(const std::vector<Mount>& mounts, std::size_t index) {
  const std::string& point = mounts[index].point;
  for (std::size_t i = 0; i < mounts.size(); ++i) {
    const Mount& mount = mounts[i];
    if (i == index || !IsPrefix(mount.point, point)) continue;
    if (mount.point == point) {
      if (i > index) return false;
      continue;
    }
    const bool covered = std::ranges::any_of(mounts.begin() + static_cast<std::ptrdiff_t>(i) + 1, mounts.end(),
                                             [&](const Mount& later) { return later.point == mount.point; });
    if (!covered && MayWait(mount)) return false;
  }
  return true;
}

bool IsSystemPoint(std::string_view point) {
  constexpr std::array<std::string_view, 4> kPoints = {"/", "/usr", "/efi", "/sysroot"};
  return std::ranges::find(kPoints, point) != kPoints.end() || IsPrefix("/boot", point);
}

BlockDevice BlockDeviceOfLink(std::string_view link, bool is_partition) {
  // Only the last folders are the same everywhere: those above are "block" of most drives, the controller or the
  // subsystem of NVMe ones.
  const auto take_last = [&] {
    const std::string_view last = link.substr(link.rfind('/') + 1);
    link.remove_suffix(std::min(link.size(), last.size() + 1));
    return std::string(last == "." || last == ".." ? std::string_view() : last);
  };
  const std::string name = take_last();
  const std::string drive = is_partition ? take_last() : name;
  return name.empty() || drive.empty() ? BlockDevice() : BlockDevice{name, drive};
}

bool MayHoldVolume(std::string_view drive) {
  constexpr std::array<std::string_view, 5> kOthers = {"loop", "ram", "zram", "nbd", "rbd"};
  return !drive.empty() && MayBeDrive(drive) &&
         std::ranges::none_of(kOthers, [&](std::string_view other) { return drive.starts_with(other); });
}

std::string FileSystemIdOfUdev(std::string_view entry) {
  constexpr std::string_view kKey = "E:ID_FS_UUID=";
  while (!entry.empty()) {
    const std::string_view line = TakeLine(entry);
    if (line.starts_with(kKey)) return std::string(TrimBlanks(line.substr(kKey.size())));
  }
  return {};
}

std::optional<std::uint64_t> SumOfErrors(std::string_view stats) {
  std::optional<std::uint64_t> sum;
  while (!stats.empty()) {
    std::string_view line = TakeLine(stats);
    TakeWord(line);
    const auto count = ParseNumber(TrimBlanks(line));
    if (!count) return std::nullopt;
    sum = sum.value_or(0) + *count;
  }
  return sum;
}

}  // namespace platform
